// package_fixture: a package of recording commands on stores of its own
#pragma once

#include "codec.h"
#include "engine_hooks.h"
#include "refcounttable.h"
#include "sp_object.h"
#include "status_words.h"
#include "variable_builder.h"

#include "support/recording_command.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace km_test {

using km::pathname;
using km::ustring;

// Notes its calls, gives the results that a test sets, and does its work visibly: a_execute makes
// the file `<name>` in `directory` and counts it, a_reverse takes both away.
class recorder : public km::cm_command {
  public:
    recorder() = default;
    explicit recorder(const std::string& of) : name(of.c_str()) {}

    codable* clone() const override { return new recorder(*this); }
    const char* codable_name() const override { return "com.ombrel.sd.cmObjects.KmtRecorder"; }
    long codable_version() const override { return 1; }
    void encode_object(km::encoder& to) const override {
        cm_command::encode_object(to);
        to.encode_string_field(200, name);
        to.encode_string_field(201, data);
    }
    codable* decode_object(km::decoder& from, long version) override {
        cm_command::decode_object(from, version);
        from.decode_string_field(200, name);
        from.decode_string_field(201, data);
        return this;
    }
    ustring get_name() override { return name; }

    void can_execute(int action, int phase) override { note("can", action, phase); }
    void can_backup(int action) override { note("backup", action, 0); }
    void do_execute(int action, int phase) override {
        note("do", action, phase);
        if (result == failure || result == fatal_failure || directory.empty() ||
            (phase != km::p_do && phase != km::p_commit))
            return;
        const std::string path = directory + "/" + name.mbcs_str();
        if (action == km::a_execute)
            std::ofstream(path) << data.mbcs_str();
        else
            ::unlink(path.c_str());
        if (auto* counts = package->reference_table)
            counts->set_counter(name, package->name, package->version,
                                action == km::a_execute ? 1 : 0);
    }
    void load_command(const int load) override { note("load", load, 0); }
    void save_command(km::zipping_channel* out) override {
        note("save", 0, 0);
        auto* entry = new km::zip_entry(name);
        entry->size = static_cast<long>(data.length());
        entry->time = 0;
        const std::string bytes = data.mbcs_str();
        if (out->put_next_entry(entry))
            out->write(reinterpret_cast<const unsigned char*>(bytes.data()),
                       static_cast<int>(bytes.size()));
    }
    void save_command(km::unzipping_channel*, km::zipping_channel*) override { note("copy", 0, 0); }
    void delta_save_command(pathname*, km::unzipping_channel*, km::zipping_channel*) override {
        note("delta", 0, 0);
    }

    ustring name, data;

    // "call action phase name" in order; only in this process.
    static inline std::vector<std::string> calls;
    // Results by "call action phase name"; success where there is none.
    static inline std::map<std::string, int> results;
    static inline std::string directory;

  private:
    void note(const char* call, int action, int phase) {
        const std::string text = std::string(call) + " " + std::to_string(action) + " " +
                                 std::to_string(phase) + " " + name.mbcs_str();
        calls.push_back(text);
        const auto at = results.find(text);
        result = at == results.end() ? success : static_cast<enum result>(at->second);
    }
};

inline km::codable* make_recorder() { return new recorder; }

inline std::string text_of(km::spmessage& list) {
    const char* bound = list.bind();
    return bound ? bound : "";
}

// The stores of one process, open, and what the host gives to a package.
struct stores {
    explicit stores(const std::string& directory)
        : catalog(pathname((directory + "/packages.pht").c_str()), 1, 0, nullptr),
          counts(pathname(directory.c_str()), 0) {}
    km::Persistent_Hashtable catalog;
    km::cm_ref_count_table counts;
    km::spmessage messages;

    void give(km::cm_package& package) {
        package.catalog = &catalog;
        package.reference_table = &counts;
        package.set_error_message(&messages);
        package.connected = 0;
    }
    // What the catalog holds; lent, null for nothing.
    const km::cm_catalog_entry* entry(const char* name = "pkg", const char* version = "1") {
        return catalog.get_as<km::cm_catalog_entry>(km::cm_catalog_key(name, version));
    }
    void put(const km::cm_catalog_entry& entry, const char* name = "pkg") {
        catalog.update(new km::cm_catalog_key(name, "1"), entry.clone());
    }
};

class PackageTest : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"KM_KILL_AT", "__REVERSE_ORDER_DURING_REMOVE__"})
            ::unsetenv(name);
        for (const char* name : {"store", "target"})
            std::filesystem::create_directory(dir_.at(name));
        km::library_loader::instance()->put(
            ustring("make_KmtRecorder"),
            km::func_ptr(reinterpret_cast<void*>(reinterpret_cast<void (*)()>(&make_recorder))));
        recorder::calls.clear();
        recorder::results.clear();
        recorder::directory = dir_.at("target");
    }
    void TearDown() override {
        km::set_engine_hooks({});
        km::variable_list_builder::free_variables();
    }

    // A new package "pkg^1" with a recorder per name.
    std::unique_ptr<km::cm_package> make(const std::vector<std::string>& names = {"a", "b"}) {
        auto package = std::make_unique<km::cm_package>();
        package->name = "pkg";
        package->version = "1";
        for (const auto& name : names)
            package->add(new recorder(name), nullptr);
        return package;
    }
    // The package that the entry's profile holds.
    static std::unique_ptr<km::cm_package> from_profile(stores& all, const char* version = "1") {
        km::cm_package* read = nullptr;
        km::sp_object reader(&all.messages);
        if (const auto* entry = all.entry("pkg", version))
            reader.decode(read, entry->profile_name, 1, km::sp_object::either);
        if (read)
            all.give(*read);
        return std::unique_ptr<km::cm_package>(read);
    }
    // The two status words, and the names of the profiles in the working directory.
    static std::string status(const km::cm_catalog_entry* entry) {
        if (!entry)
            return "none";
        const auto word = [](int value) {
            return value == km::cs_error ? std::string("E") : std::to_string(value);
        };
        return word(entry->cm_status) + "/" + word(entry->current_cm_status);
    }
    long files_in(const std::string& name) const {
        const auto all = std::filesystem::directory_iterator(dir_.at(name));
        return std::distance(begin(all), end(all));
    }

    engine_home home_;
    const scratch_dir& dir_ = home_.dir;
};

} // namespace km_test
