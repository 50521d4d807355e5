// generic_container: a group of commands with a condition
//
// Coded form: that of a composite. Stanza "generic_container" with the keys "caption", "condition",
// "stop_on_failure", and the stanzas of its commands. Where its condition is false its commands are
// passed over, which is told. Its commands load and save their data through it.
#pragma once

#include "composite_command.h"

namespace km {

class km_generic_container : public cm_composite_command {
  public:
    using cm_composite_command::cm_composite_command;
    codable* clone() const override { return new km_generic_container(*this); }
    // Its coded name holds "CmGenericContainer", by which composites know it.
    const char* codable_name() const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    ustring get_name() override;

    // What it stands in, while it is imported: paths in it are below the directory around it.
    cm_command* outer = nullptr;
};

} // namespace km
