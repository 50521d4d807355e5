// The lists of variables and the chains that are made of them.
#include "base_configuration.h"
#include "builtin_variables.h"
#include "dynamic_variables.h"
#include "installed_variables.h"
#include "variable_builder.h"

#include "support/scratch.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using km::pathname;
using km::user_file_variable_list;
using km::ustring;
using km::variable_list;
using km::variable_list_builder;

namespace {

const char* const undefined = "(undefined)";

std::string told(ustring* value) {
    const std::unique_ptr<ustring> owned(value);
    return owned ? owned->mbcs_str() : undefined;
}

std::string value_of(variable_list& list, const char* name) { return told(list.get_value(name)); }

class Chains : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"ZNPIS_INI_SECTION", "ZNPIS_PRODUCT_DIR"})
            ::unsetenv(name);
        km::set_configuration_location(pathname(dir_.at("state").c_str()));
        dir_.write("state/znpis.ini", "[#MOBILE]\nuser_file_variables=" + dir_.at("user.var") +
                                          "\ninventory_scan_file=" + dir_.at("scan") + "\n");
    }
    void TearDown() override {
        variable_list_builder::free_variables();
        km::set_configuration_location(pathname());
    }
    km_test::scratch_dir dir_;
};

} // namespace

TEST_F(Chains, EachListHidesThoseBehindIt) {
    dir_.write("user.var", "cl=user\nus=user\nos_family=user\n");
    dir_.write("scan", "in=scan\nen=scan\npk=scan\n");
    ::setenv("en", "environment", 1);
    ::setenv("os_name", "environment", 1);
    char line[] = " cl = line ";
    char broken[] = "no value";
    char* texts[] = {line, broken};
    const km::_sequence_string sequence{2, texts};
    auto* package = new variable_list;
    for (const char* name : {"cl", "us", "os_family", "os_name", "en", "in", "own"})
        package->set_value(name, "package");
    variable_list* chain = variable_list_builder::get_decoder_variables(&sequence, package);

    EXPECT_EQ(value_of(*chain, "cl"), "line");
    EXPECT_EQ(value_of(*chain, "us"), "user");
    EXPECT_EQ(value_of(*chain, "os_family"), "user");
    EXPECT_EQ(value_of(*chain, "os_name"), "Linux");
    EXPECT_EQ(value_of(*chain, "en"), "environment");
    EXPECT_EQ(value_of(*chain, "in"), "scan");
    EXPECT_EQ(value_of(*chain, "own"), "package");
    EXPECT_EQ(value_of(*chain, "no value"), undefined);
    EXPECT_EQ(value_of(*package, "cl"), "line") << "the command line travels with the package";

    auto* second = new variable_list;
    EXPECT_EQ(variable_list_builder::get_decoder_variables(nullptr, second), chain);
    EXPECT_EQ(chain->get_defaults(), second);
    EXPECT_EQ(value_of(*second, "cl"), "line");
    EXPECT_EQ(value_of(*chain, "own"), undefined);
    ustring text("$(cl)/$(us)");
    EXPECT_EQ(chain->substitute_variables(text), 1);
    EXPECT_STREQ(text.mbcs_str(), "line/user");
    ::unsetenv("en");
    ::unsetenv("os_name");
}

TEST_F(Chains, SeveralChainsLiveSideBySideAndAreFreedOnce) {
    variable_list* decoder = variable_list_builder::get_decoder_variables(nullptr, nullptr);
    variable_list* importer = variable_list_builder::get_importer_variables(new variable_list);
    variable_list* autopack = variable_list_builder::get_autopack_variables(nullptr);
    for (variable_list* chain : {decoder, importer, autopack})
        EXPECT_EQ(value_of(*chain, "os_family"), "UNIX");
    EXPECT_EQ(variable_list_builder::get_importer_variables(nullptr), importer);
    EXPECT_EQ(told(importer->check_defined("installed_software")), "");
    EXPECT_STREQ(km::built_in_variable_list::get_var("temp_dir").mbcs_str(), "/tmp");
    variable_list_builder::free_variables();
    EXPECT_EQ(variable_list::get_chain(variable_list::for_decoder), nullptr);
    EXPECT_STREQ(km::built_in_variable_list::get_var("temp_dir").mbcs_str(), "/tmp");
}

TEST_F(Chains, NamesKnownElsewhereOrLaterCountAsDefined) {
    variable_list* chain = variable_list_builder::get_importer_variables(nullptr);
    const struct {
        const char* name;
        const char* checked;
    } rows[] = {{"system_root", ""},
                {"os_family", "UNIX"},
                {"ep_label", ""},
                {"cdrom_26", ""},
                {"freedrive_0", ""},
                {"cdrom_27", undefined},
                {"cdrom_123", undefined},
                {"cdrom_", undefined},
                {"cdrom_x", undefined},
                {"operation_result", ""},
                {"operation_is_force", undefined}};
    for (const auto& row : rows)
        EXPECT_EQ(told(chain->check_defined(row.name)), row.checked) << row.name;
    EXPECT_EQ(value_of(*chain, "system_root"), undefined);
    EXPECT_EQ(value_of(*chain, "operation_result"), undefined);
    EXPECT_STREQ(chain->lookup_undefined_variables("$(cdrom_1)$(none)x").mbcs_str(), "none");
}

TEST_F(Chains, ThePackageAnswersBeforeTheOtherLists) {
    int package = 0;
    km::dynamic_variable_list::set_package(
        reinterpret_cast<km::cm_package*>(&package), [](km::cm_package&, const ustring& name) {
            return name == ustring("operation_name") ? new ustring("install") : nullptr;
        });
    variable_list* chain = variable_list_builder::get_importer_variables(nullptr);
    EXPECT_EQ(value_of(*chain, "operation_name"), "install");
    EXPECT_EQ(value_of(*chain, "operation_phase"), undefined);
    km::dynamic_variable_list::set_package(nullptr, nullptr);
    EXPECT_EQ(value_of(*chain, "operation_name"), undefined);
}

TEST_F(Chains, AVariableFileIsReadByItsRules) {
    dir_.write("v", "# a = comment\n  a = 1 \n\nno value\na=2=3\n=nameless\nb\t=\tx y\n");
    user_file_variable_list list{pathname(dir_.at("v").c_str())};
    EXPECT_TRUE(list.is_loaded());
    EXPECT_EQ(list.size(), 3);
    EXPECT_EQ(value_of(list, "a"), "2=3");
    EXPECT_EQ(value_of(list, "b"), "x y");
    EXPECT_EQ(value_of(list, ""), "nameless");
}

TEST_F(Chains, ALargeVariableFileIsReadNameByName) {
    for (const std::size_t size : {4096U, 4097U}) {
        std::string bytes = "first=1\nlast=2\nlast=3\n#";
        bytes.resize(size, 'x');
        dir_.write("v", bytes);
        user_file_variable_list list{pathname(dir_.at("v").c_str())};
        EXPECT_EQ(list.is_loaded(), size == 4096U);
        EXPECT_EQ(list.size(), size == 4096U ? 2 : 0);
        EXPECT_EQ(value_of(list, "last"), size == 4096U ? "3" : "2");
        EXPECT_EQ(value_of(list, "none"), undefined);
        EXPECT_EQ(list.size(), size == 4096U ? 2 : 1);
    }
}

TEST_F(Chains, WritingAVariableFileKeepsItsOtherLines) {
    dir_.write("v", "# head\nab=1\na=1\n");
    user_file_variable_list list{pathname(dir_.at("v").c_str())};
    list.clear();
    list.set_value("a", "2");
    EXPECT_EQ(list.write(), 1);
    EXPECT_EQ(dir_.read("v"), "# head\nab=1\na = 2\n");
    list.set_value("new", "3");
    EXPECT_EQ(list.write(), 1);
    EXPECT_EQ(dir_.read("v"), "# head\nab=1\na = 2\nnew = 3\n");
}

TEST_F(Chains, RefreshReachesTheListsOfEveryChain) {
    dir_.write("user.var", "a=1\n");
    variable_list* chain = variable_list_builder::get_decoder_variables(nullptr, nullptr);
    EXPECT_EQ(value_of(*user_file_variable_list::get_list(), "a"), "1");
    dir_.write("user.var", "a=2\n");
    user_file_variable_list::refresh();
    EXPECT_EQ(value_of(*chain, "a"), "2");
    EXPECT_EQ(value_of(*user_file_variable_list::get_list(), "a"), "2");
}

TEST(InstalledSoftware, AnItemIsFoundAtItsFirstOccurrence) {
    using km::installed_sw_endpoint_variable_list;
    const struct {
        const char* list;
        const char* item;
        int found;
    } rows[] = {{"a^1;b^2;", "a^1", 1},
                {"a^1;b^2;", "b^2", 1},
                {"a^1;b^2;", "^2", 0},
                {"xa^1;a^1;", "a^1", 0},
                {"", "a", 0}};
    for (const auto& row : rows)
        EXPECT_EQ(installed_sw_endpoint_variable_list::is_str_present(row.list, row.item),
                  row.found)
            << row.list << " " << row.item;
}
