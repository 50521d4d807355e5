// What a package takes from a definition and writes into one.
#include "package_fixture.h"
#include "pair.h"
#include "variable_list.h"

#include "support/has.h"
#include "support/fake_definition.h"

using namespace km_test;
using km::cm_package;

namespace {

// Also answers objects and the words of a list of packages.
class definition : public fake_importer {
  public:
    std::map<std::string, std::unique_ptr<km::codable>> objects;
    std::deque<std::string> words; // a word "package" brings its name and version along
    int unread = 0;

    int get_object(const char* name, km::codable** value) override {
        return objects.count(name) && (*value = objects[name]->clone(), true);
    }
    std::string take() {
        const std::string word = words.front();
        words.pop_front();
        return word;
    }
    int next_word(ustring* word) override {
        if (words.empty())
            return 0;
        *word = u(take());
        if (*word == u("package")) {
            values["name"] = take();
            values["version"] = take();
        }
        return 1;
    }
    void unread_word() override { ++unread; }
};

// Notes names and values, "{" and "}" for a stanza.
class written : public fake_exporter {
  public:
    explicit written(const km::codable& object) { object.export_(*this); }
    std::vector<std::pair<std::string, std::string>> lines;

    void put_string(const char* name, const ustring& value) override {
        lines.emplace_back(name, value.mbcs_str());
    }
    void put_integer(const char* name, int value) override {
        lines.emplace_back(name, std::to_string(value));
    }
    void put_object(const char* name, const km::codable*) override {
        lines.emplace_back(name, "object");
    }
    void begin_stanza(const char* name) override { lines.emplace_back("{", name); }
    void end_stanza() override { lines.emplace_back("}", ""); }

    std::string names() const {
        std::string all;
        for (const auto& [name, value] : lines)
            all += name + " ";
        return all;
    }
};

class PackageText : public PackageTest {};

} // namespace

TEST_F(PackageText, NamesAndHostsAreTakenApart) {
    const struct {
        const char *name, *version, *package, *of_version;
    } names[] = {
        {"pkg", "1", "pkg", "1"}, {"pkg^1.2", "3", "pkg", "1.2.3"}, {"a^b^c", "d", "a", "b^c.d"}};
    for (const auto& row : names) {
        definition from;
        from.values = {{"name", row.name}, {"version", row.version}};
        cm_package package;
        package.import(from);
        const auto* own = package.nested_packages.at<km::pair>(0);
        ASSERT_TRUE(own) << "a package lists itself";
        EXPECT_TRUE(*own == km::pair(package.name, package.version));
        EXPECT_TRUE(*own == km::pair(ustring(row.package), ustring(row.of_version))) << row.name;
    }
    const struct {
        const char *host, *taken;
    } hosts[] = {{"plain", "plain"},
                 {"@@host", "@host"},
                 {"@ManagedNode:host", "host"},
                 {"0123456789@ManagedNode:host", "nagedNode:host"},
                 {"", ""}};
    for (const auto& row : hosts) {
        definition from;
        from.values = {{"source_host_name", row.host}, {"log_host_name", row.host}};
        cm_package package;
        package.import(from);
        EXPECT_EQ(package.source_host_name, ustring(row.taken)) << row.host;
        EXPECT_EQ(package.log_host_name, ustring(row.taken)) << row.host;
    }
}

TEST_F(PackageText, TheExportHasItsOrderAndIsReadBack) {
    cm_package package;
    const std::string bare =
        "{ name title description version copyright web_view_mode undoable committable "
        "history_reset save_default_variables creation_time last_modification_time spb_path "
        "source_host_name stage_area move_removing_host no_check_source_host lenient_distribution "
        "default_operation server_mode operation_mode log_path post_notice mail_id "
        "before_program_path before_input_path before_as_uid skip_non_zero after_program_path "
        "after_input_path after_as_uid before_prog_env after_prog_env no_chk_on_rm log_host_name "
        "versioning_type package_type dependency sharing_control qep_before_program_path "
        "qep_after_program_path stop_on_failure condition } ";
    EXPECT_EQ(written(package).names(), bare);
    package.nested_packages.push_back(new km::pair(ustring("self"), ustring("1")));
    EXPECT_EQ(written(package).names(), bare) << "itself alone is not told";

    definition from;
    from.objects["creation_time"] = std::make_unique<ustring>("1999-01-01 00:00:00");
    from.objects["log_object_list"] = std::make_unique<km::log_object_list>();
    auto variables = std::make_unique<km::variable_list>();
    variables->set_value("x", "y");
    from.objects["default_variables"] = std::move(variables);
    auto nested = std::make_unique<km::nested_package_list>();
    nested->push_back(new km::pair(ustring("other"), ustring("2")));
    from.objects["nested_software_package"] = std::move(nested);
    from.commands = {new recorder("child")};
    std::string all = bare;
    const auto put_in = [&all](const std::string& behind, const std::string& names) {
        all.insert(all.find(behind + " ") + behind.size() + 1, names);
    };
    put_in("last_modification_time", "default_variables log_object_list ");
    put_in("log_path", "log_mode log_user_id log_gid ");
    put_in("log_host_name", "nested_software_package ");
    for (const std::string name : {"qep_before_program_", "qep_after_program_"})
        put_in(name + "path", name + "arguments " + name + "timeout ");
    std::istringstream words(all);
    int next = 100;
    for (std::string name; words >> name;)
        from.values[name] = std::to_string(next++);
    from.values["operation_mode"] = std::to_string(km::m_undoable | km::m_force);
    const std::time_t before = std::time(nullptr);
    package.import(from);
    EXPECT_GE(package.creation_time, before) << "a told time is thrown away";
    EXPECT_EQ(package.creation_time, package.last_modification_time);
    EXPECT_EQ(package.operation_is_undoable + package.operation_is_force, 2);
    package.set_operation_option(km::m_auto_commit); // takes none away
    EXPECT_EQ(package.operation_is_undoable + package.operation_is_auto_commit, 2);
    EXPECT_EQ(package.operation_is_transactional, 0);
    EXPECT_EQ(package.find("child", 1)->get_package(), &package);
    EXPECT_EQ(package.nested_packages.size(), 2);
    package.remove(package.find("child", 1));

    package.creation_time = package.last_modification_time = 86400;
    package.source_host_name = "@@host";
    from.values["source_host_name"] = "@host";
    const written to(package);
    EXPECT_EQ(to.names(), all);
    for (const auto& [name, value] : to.lines) {
        if (has(name, "_time") && name.find("timeout") == std::string::npos) {
            EXPECT_EQ(value.substr(0, 9), "1970-01-0") << value;
        } else if (name.size() > 1 && value != "object") {
            EXPECT_EQ(value, from.values[name]) << name;
        }
    }
    // An import without variables does not inherit those of another one.
    definition nothing;
    cm_package second;
    second.import(nothing);
    ASSERT_TRUE(second.variables);
    EXPECT_EQ(second.variables->get_defaults()->size(), 0);
    EXPECT_EQ(written(second).names(), bare);
}

TEST_F(PackageText, ANestedPackageIsToldOnceAndItsBlockIsClosed) {
    definition from;
    km::spmessage messages;
    from.messages = &messages;
    from.words = {"package", "a",       "1", "end", "package", "b",    "1",
                  "end",     "package", "a", "1",   "end",     "other"};
    km::nested_package_list list;
    list.import(from);
    EXPECT_EQ(list.size(), 2);
    EXPECT_EQ(from.unread, 1);
    EXPECT_EQ(from.flags, 0);
    EXPECT_HAS(text_of(messages), "near line 12: Package a^1 already");
    EXPECT_EQ(written(list).names(), "{ name version } { name version } ");
    from.words = {"package", "c", "1", "package", "d", "1", "end"};
    list.import(from);
    EXPECT_EQ(from.flags, 0x20000);
    EXPECT_FALSE(list.holds("d", "1"));
}
