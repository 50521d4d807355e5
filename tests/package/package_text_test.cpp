// What a package takes from a definition and writes into one.
#include "exporter.h"
#include "importer.h"
#include "package_fixture.h"
#include "pair.h"
#include "variable_list.h"

#include <ctime>
#include <deque>

using namespace km_test;
using km::cm_package;

namespace {

// Answers what a test put in, and notes the order of the questions.
class fake_importer : public km::importer {
  public:
    std::map<std::string, std::string> values;
    std::map<std::string, std::unique_ptr<km::codable>> objects;
    std::deque<std::string> words;
    std::deque<km::cm_command*> commands;
    std::vector<std::string> asked;

    int load(const pathname&, cm_package*&) override { return 0; }
    void close() override {}
    int get_boolean(const char* name, int* value) override { return get_integer(name, value); }
    int get_integer(const char* name, int* value) override {
        const bool there = has(name);
        if (there)
            *value = std::atoi(values[name].c_str());
        return there;
    }
    int get_string(const char* name, ustring* value) override {
        const bool there = has(name);
        if (there)
            *value = ustring(values[name].c_str());
        return there;
    }
    int get_pathname(const char* name, pathname* value) override {
        const bool there = has(name);
        if (there)
            *value = pathname(values[name].c_str());
        return there;
    }
    int get_object(const char* name, km::codable** value) override {
        asked.emplace_back(name);
        const auto at = objects.find(name);
        *value = at == objects.end() ? nullptr : at->second->clone();
        return *value != nullptr;
    }
    int next_pair(ustring*, ustring*) override { return 0; }
    int next_word(ustring* word) override {
        if (words.empty())
            return 0;
        *word = ustring(words.front().c_str());
        words.pop_front();
        // A block "package" brings its two keys along.
        if (*word == ustring("package")) {
            for (const char* key : {"name", "version"}) {
                values[key] = words.front();
                words.pop_front();
            }
        }
        return 1;
    }
    void unread_word() override { ++unread; }
    km::cm_command* next_command() override {
        if (commands.empty())
            return nullptr;
        km::cm_command* one = commands.front();
        commands.pop_front();
        return one;
    }
    int is_shared_allowed() override { return 0; }
    void set_add_mode(int) override {}
    ustring current_stanza() override { return "package"; }
    km::cm_command* get_container() override { return container; }
    void set_container(km::cm_command* one) override { container = one; }
    int line_number() override { return 42; }

    int unread = 0;
    km::cm_command* container = nullptr;

  private:
    bool has(const char* name) {
        asked.emplace_back(name);
        return values.count(name) != 0;
    }
};

class fake_exporter : public km::exporter {
  public:
    std::vector<std::string> lines;

    int open(const pathname&) override { return 1; }
    void close() override {}
    void put_boolean(const char* name, int value) override { put_integer(name, value); }
    void put_string(const char* name, const ustring& value) override {
        lines.push_back(std::string(name) + "=" + value.mbcs_str());
    }
    void put_pathname(const char* name, const pathname& value) override {
        put_string(name, value.get_text());
    }
    void put_integer(const char* name, int value) override {
        lines.push_back(std::string(name) + "=" + std::to_string(value));
    }
    void put_object(const char* name, const km::codable* value) override {
        lines.push_back(std::string(name) + "=" + (value ? "object" : "null"));
    }
    void set_add_mode(int) override {}
    int is_shared_allowed() override { return 0; }
    ustring current_stanza() override { return {}; }
    ustring stanza_context() override { return {}; }
    void begin_stanza(const char* name) override { lines.push_back(std::string("{") + name); }
    void end_stanza() override { lines.emplace_back("}"); }

    std::string names() const {
        std::string all;
        for (const auto& line : lines)
            all += line.substr(0, line.find('=')) + " ";
        return all;
    }
    bool holds(const std::string& line) const {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
};

class PackageText : public PackageTest {};

std::string exported_names(const cm_package& package) {
    fake_exporter to;
    package.export_(to);
    return to.names();
}

} // namespace

TEST_F(PackageText, NamesAndHostsAreTakenApart) {
    const struct {
        const char *name, *version, *package, *of_version;
    } names[] = {{"pkg", "1", "pkg", "1"},
                 {"pkg^1.2", "3", "pkg", "1.2.3"},
                 {"a^b", "c", "a", "b.c"},
                 {"a^b^c", "d", "a", "b^c.d"}};
    for (const auto& row : names) {
        fake_importer from;
        from.values = {{"name", row.name}, {"version", row.version}};
        cm_package package;
        package.import(from);
        EXPECT_EQ(package.name, ustring(row.package));
        EXPECT_EQ(package.version, ustring(row.of_version));
        const auto* own = package.nested_packages.at<km::pair>(0);
        ASSERT_TRUE(own) << "a package lists itself";
        EXPECT_TRUE(*own == km::pair(ustring(row.package), ustring(row.of_version)));
    }
    const struct {
        const char *host, *taken;
    } hosts[] = {{"plain", "plain"},
                 {"@host", "host"},
                 {"@@host", "@host"},
                 {"@ManagedNode:host", "host"},
                 {"0123456789@ManagedNode:host", "nagedNode:host"},
                 {"host@", "host@"},
                 {"", ""}};
    for (const auto& row : hosts) {
        fake_importer from;
        from.values = {{"source_host_name", row.host}, {"log_host_name", row.host}};
        cm_package package;
        package.import(from);
        EXPECT_EQ(package.source_host_name, ustring(row.taken)) << row.host;
        EXPECT_EQ(package.log_host_name, ustring(row.taken)) << row.host;
    }
}

TEST_F(PackageText, WhatIsAbsentKeepsItsDefaultAndTheRestArrives) {
    fake_importer nothing;
    cm_package bare;
    const std::time_t before = std::time(nullptr);
    nothing.objects["creation_time"] = std::make_unique<ustring>("1999-01-01 00:00:00");
    bare.import(nothing);
    EXPECT_GE(bare.creation_time, before) << "a told time is thrown away";
    EXPECT_EQ(bare.creation_time, bare.last_modification_time);
    EXPECT_EQ(exported_names(bare), exported_names(cm_package()));
    ASSERT_TRUE(bare.variables);
    EXPECT_EQ(bare.variables->get_defaults()->size(), 0);

    fake_importer from;
    km::spmessage messages;
    from.messages = &messages;
    for (const char* key :
         {"title", "description", "copyright", "mail_id", "dependency", "default_operation",
          "before_prog_env", "after_prog_env", "spb_path", "stage_area", "log_path",
          "before_program_path", "before_input_path", "after_program_path", "after_input_path",
          "qep_before_program_path", "qep_before_program_arguments", "qep_after_program_path",
          "qep_after_program_arguments"})
        from.values[key] = std::string("v_") + key;
    int next = 100;
    for (const char* key : {"web_view_mode",
                            "undoable",
                            "committable",
                            "history_reset",
                            "save_default_variables",
                            "move_removing_host",
                            "no_check_source_host",
                            "lenient_distribution",
                            "server_mode",
                            "log_mode",
                            "log_user_id",
                            "log_gid",
                            "post_notice",
                            "before_as_uid",
                            "skip_non_zero",
                            "after_as_uid",
                            "no_chk_on_rm",
                            "versioning_type",
                            "package_type",
                            "sharing_control",
                            "qep_before_program_timeout",
                            "qep_after_program_timeout",
                            "stop_on_failure"})
        from.values[key] = std::to_string(next++);
    from.values["operation_mode"] = std::to_string(km::m_undoable | km::m_force);
    auto variables = std::make_unique<km::variable_list>();
    variables->set_value("x", "y");
    from.objects["default_variables"] = std::move(variables);
    from.objects["log_object_list"] = std::make_unique<km::log_object_list>();
    auto nested = std::make_unique<km::nested_package_list>();
    nested->push_back(new km::pair(ustring("other"), ustring("2")));
    from.objects["nested_software_package"] = std::move(nested);
    from.commands = {new recorder("child")};
    cm_package package;
    package.import(from);
    EXPECT_EQ(package.operation_is_undoable + package.operation_is_force, 2);
    EXPECT_EQ(package.find("child", 1)->get_package(), &package);
    EXPECT_EQ(from.container, nullptr);
    fake_exporter to;
    package.export_(to);
    for (const auto& [key, value] : from.values)
        EXPECT_TRUE(to.holds(key + "=" + value)) << key;
    EXPECT_TRUE(to.holds("nested_software_package=object")) << "itself and the other";
    EXPECT_EQ(package.nested_packages.size(), 2);
    EXPECT_TRUE(to.holds("default_variables=object"));
    // Smaller options later take none away.
    package.set_operation_option(km::m_auto_commit);
    EXPECT_EQ(package.operation_is_undoable + package.operation_is_auto_commit, 2);
    EXPECT_EQ(package.operation_is_transactional, 0);
}

TEST_F(PackageText, TheExportHasItsOrderAndLeavesOutWhatIsNotSet) {
    cm_package package;
    const std::string bare =
        "{package name title description version copyright web_view_mode undoable committable "
        "history_reset save_default_variables creation_time last_modification_time spb_path "
        "source_host_name stage_area move_removing_host no_check_source_host lenient_distribution "
        "default_operation server_mode operation_mode log_path post_notice mail_id "
        "before_program_path before_input_path before_as_uid skip_non_zero after_program_path "
        "after_input_path after_as_uid before_prog_env after_prog_env no_chk_on_rm log_host_name "
        "versioning_type package_type dependency sharing_control qep_before_program_path "
        "qep_after_program_path stop_on_failure condition } ";
    EXPECT_EQ(exported_names(package), bare);
    package.nested_packages.push_back(new km::pair(ustring("self"), ustring("1")));
    EXPECT_EQ(exported_names(package), bare) << "itself alone is not told";
    package.nested_packages.push_back(new km::pair(ustring("other"), ustring("1")));
    package.log_mode = package.log_user_id = 0;
    package.log_gid = 0;
    package.qep_before_program_path = pathname("/b");
    package.qep_after_program_path = pathname("/a");
    package.source_host_name = "@@host";
    package.creation_time = 86400;
    km::variable_list variables;
    variables.set_value("x", "y");
    package.variables = &variables;
    fake_exporter to;
    package.export_(to);
    const std::string names = to.names();
    for (const char* part :
         {"last_modification_time default_variables spb_path",
          "log_path log_mode log_user_id log_gid post_notice",
          "log_host_name nested_software_package versioning_type",
          "qep_before_program_path qep_before_program_arguments qep_before_program_timeout "
          "qep_after_program_path qep_after_program_arguments qep_after_program_timeout stop"})
        EXPECT_NE(names.find(part), std::string::npos) << part;
    EXPECT_TRUE(to.holds("source_host_name=@host"));
    EXPECT_EQ(std::count_if(to.lines.begin(), to.lines.end(),
                            [](const std::string& line) {
                                return line.rfind("creation_time=1970-01-0", 0) == 0;
                            }),
              1);
}

TEST_F(PackageText, ANestedPackageIsToldOnceAndItsBlockIsClosed) {
    fake_importer from;
    km::spmessage messages;
    from.messages = &messages;
    from.words = {"package", "a",       "1", "end", "package", "b",    "1",
                  "end",     "package", "a", "1",   "end",     "other"};
    km::nested_package_list list;
    list.import(from);
    EXPECT_EQ(list.size(), 2);
    EXPECT_EQ(from.unread, 1);
    EXPECT_EQ(from.flags, 0);
    EXPECT_NE(text_of(messages).find("near line 42: Package a^1 already specified"),
              std::string::npos)
        << text_of(messages);
    fake_exporter to;
    list.export_(to);
    EXPECT_EQ(to.names(), "{package name version } {package name version } ");
    from.words = {"package", "c", "1", "package", "d", "1", "end"};
    list.import(from);
    EXPECT_EQ(from.flags, 0x20000);
    EXPECT_FALSE(list.holds("d", "1"));
}
