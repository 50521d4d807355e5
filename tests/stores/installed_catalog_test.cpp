// The list of installed software that is made of a catalog.
#include "base_configuration.h"
#include "catalog.h"
#include "installed_variables.h"
#include "persistent_hashtable.h"
#include "variable_builder.h"

#include "support/has.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

using km::ustring;

namespace {

std::string installed(km::variable_list& chain) {
    const std::unique_ptr<ustring> value(chain.get_value("installed_software"));
    return value ? value->mbcs_str() : "(undefined)";
}

} // namespace

TEST(InstalledSoftware, OnlyVisibleInstalledPackagesAreListed) {
    const struct {
        const char* name;
        int status, current, action;
        long high_bits;
        bool listed;
    } rows[] = {{"committed", 2, 2, 1, 0, true},        {"undoable", 5, 5, 1, 0, true},
                {"excluded", 2, 2, 1, 0, false},        {"removed", 2, 2, 2, 0, false},
                {"prepared", 3, 3, 1, 0, false},        {"reset", 6, 6, 1, 0, false},
                {"moving", 2, 5, 1, 0, false},          {"broken", 0x10002, 0x10002, 1, 0, false},
                {"hidden", 2, 2, 1, 0xC0000000L, false}};
    km_test::scratch_dir dir;
    km::set_configuration_location(km::pathname(dir.at("state").c_str()));
    km::Persistent_Hashtable table(km::pathname(dir.at("t").c_str()), 0, 1, nullptr);
    for (const auto& row : rows) {
        auto* entry = new km::cm_catalog_entry;
        entry->cm_status = row.status;
        entry->current_cm_status = row.current;
        entry->last_action = row.action;
        entry->db_status = row.high_bits;
        ASSERT_EQ(table.put(new km::cm_catalog_key(row.name, "1.0"), entry), 1);
    }
    km::variable_list* chain =
        km::variable_list_builder::get_dependency_variables(table, "excluded^1.0;", 0, nullptr);
    const std::string list = installed(*chain);
    EXPECT_EQ(list.rfind("#installed_software#", 0), 0U);
    for (const auto& row : rows)
        EXPECT_EQ(list.find(std::string(row.name) + "^1.0;") != std::string::npos, row.listed)
            << row.name << " in " << list;

    const km::cm_catalog_key gone("undoable", "1.0");
    ASSERT_EQ(table.remove(&gone), 1);
    km::variable_list_builder::get_dependency_variables(table, "", 0, nullptr);
    EXPECT_EQ(installed(*chain), list) << "the chain is kept";
    chain = km::variable_list_builder::get_dependency_variables(table, "", 1, nullptr);
    EXPECT_EQ(installed(*chain).find("undoable"), std::string::npos);
    EXPECT_HAS(installed(*chain), "excluded^1.0;");
    km::variable_list_builder::free_variables();
    km::set_configuration_location(km::pathname());
}
