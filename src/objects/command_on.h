// command_on: a command of this library on one class of objects
#pragma once

namespace km {

class cm_object;

struct command_names {
    const char* coded;
    const char* stanza;
};

// `Base` is a command of an addition or of a removal; without an object it makes an empty one.
template <class Base, class Object, const command_names& Names> class command_on : public Base {
  public:
    explicit command_on(cm_object* of) : Base(of ? of : new Object) {}
    codable* clone() const override { return new command_on(*this); }
    const char* codable_name() const override { return Names.coded; }

  protected:
    const char* stanza() const override { return Names.stanza; }
};

} // namespace km
