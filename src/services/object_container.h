// object_container: composites that stand for a container of objects
//
// A container groups objects under one composite and owns one object of its own, which describes
// it. It moves no data: data of its children are not reached through it when a package file is
// written or loaded.
#pragma once

#include "composite_command.h"
#include "object.h"

namespace km {

// Coded form of both: the composite's fields, object field 300 `object`.
class cm_object_container : public cm_composite_command {
  public:
    // Takes the object over.
    explicit cm_object_container(cm_object* of = nullptr) : cm_composite_command(1), object(of) {}
    cm_object_container(const cm_object_container& other);
    cm_object_container& operator=(const cm_object_container& other);
    ~cm_object_container() override { delete object; }

    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // The object's condition becomes the container's.
    void import(importer& from) override;

    // 9 without an object, which only a damaged tree has.
    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    void set_package(cm_package* package) override;
    void load_command(const int load) override;
    using cm_composite_command::save_command;
    void save_command(zipping_channel* out) override;
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override;

    cm_object* object;

  protected:
    // 1 for an add container.
    virtual int is_add() const = 0;

  private:
    bool has_no_object();
};

class cm_add_object_container : public cm_object_container {
  public:
    using cm_object_container::cm_object_container;
    codable* clone() const override { return new cm_add_object_container(*this); }
    const char* codable_name() const override;
    void export_(exporter& to) const override;

  protected:
    int is_add() const override { return 1; }
};

class cm_remove_object_container : public cm_object_container {
  public:
    using cm_object_container::cm_object_container;
    codable* clone() const override { return new cm_remove_object_container(*this); }
    const char* codable_name() const override;
    // Turns the order of its children round, and leaves it so: the text shows them opposite to the
    // order in which they run.
    void export_(exporter& to) const override;

  protected:
    int is_add() const override { return 0; }
};

} // namespace km
