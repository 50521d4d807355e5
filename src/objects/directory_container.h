// directory_container: a directory with what is put into it, or taken out of it
//
// Coded form of both: that of the library's containers; `object` is the KmDirectory. Its command
// stands among the children, first of those that add, last of those that remove, as a class of its
// own (KmAddContainerDirectory, KmRemoveContainerDirectory; coded as CmAddObject, CmRemoveObject)
// that has no text. Paths of the children that are not absolute are below the directory.
#pragma once

#include "object_container.h"

namespace km {

class km_add_container : public cm_add_object_container {
  public:
    km_add_container();
    codable* clone() const override { return new km_add_container(*this); }
    const char* codable_name() const override;
    // Stanza "add_container": the keys of a directory, "stop_on_failure", "condition", and the
    // stanzas of the children.
    void import(importer& from) override;
    void export_(exporter& to) const override;
    // Data of children pass through it, unlike through the library's own.
    using cm_add_object_container::save_command;
    void load_command(const int load) override { cm_composite_command::load_command(load); }
    void save_command(zipping_channel* out) override { cm_composite_command::save_command(out); }
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override {
        cm_composite_command::delta_save_command(base, in, out);
    }
};

class km_remove_container : public cm_remove_object_container {
  public:
    km_remove_container();
    codable* clone() const override { return new km_remove_container(*this); }
    const char* codable_name() const override;
    // Stanza "remove_container". Its children stand in the text as those of an addition would, and
    // run from the last one to the first; the directory goes behind them.
    void import(importer& from) override;
    void export_(exporter& to) const override;
    using cm_remove_object_container::save_command;
    void load_command(const int load) override { cm_composite_command::load_command(load); }
    void save_command(zipping_channel* out) override { cm_composite_command::save_command(out); }
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override {
        cm_composite_command::delta_save_command(base, in, out);
    }
};

// A path as a definition has it, below the directory of the container that is imported.
ustring path_in_container(importer& from, const ustring& path);

} // namespace km
