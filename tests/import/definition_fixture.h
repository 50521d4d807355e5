// definition_fixture: definitions out of texts, with the product's rules and objects
#pragma once

#include "base/msg_supp.h"
#include "package.h"
#include "program_command.h"
#include "support/coded.h"
#include "support/scratch.h"
#include "text_exporter.h"
#include "text_importer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace km_test {

class Definition : public ::testing::Test {
  protected:
    void SetUp() override {
        ::setenv("SPEDITOR_LIB_PATH", KM_BUILD_LIB "/../share/kmcore", 1);
        importer_.messages = &messages_;
    }

    std::unique_ptr<km::cm_package> read(const std::string& text) {
        messages_.reset();
        km::cm_package* package = nullptr;
        const std::string file = scratch_.write("d.spd", text);
        const int good = importer_.load(km::pathname(file.c_str()), package);
        EXPECT_EQ(good != 0, package != nullptr);
        return std::unique_ptr<km::cm_package>(package);
    }

    std::unique_ptr<km::cm_package> read_body(const std::string& body) {
        return read("kmspd 1.0\npackage {\nname = p\nversion = 1\n" + body + "}\n");
    }

    std::string write(const km::cm_package& package) {
        km::text_exporter out;
        EXPECT_TRUE(out.open(km::pathname(scratch_.at("out.spd").c_str())));
        package.export_(out);
        out.close();
        EXPECT_TRUE(out.good());
        return scratch_.read("out.spd");
    }

    // Places and numbers of the faults: "2:3 im_..." as "2:3=17".
    std::string faults() const {
        std::string all;
        for (const auto& one : importer_.problems().all())
            all += (all.empty() ? "" : " ") + std::to_string(one.place.line) + ":" +
                   std::to_string(one.place.column) + "=" + std::to_string(one.key);
        return all;
    }

    std::string told() {
        const char* text = messages_.bind();
        return text ? text : "";
    }

    // Numbers of commands run on through a process; between the commands of a tree they tell.
    static void count_from(km::cm_composite_command& tree, int first) {
        for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
            auto* command = static_cast<km::cm_command*>(all.nextElement());
            command->set_command_index(command->get_command_index() - first);
            if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
                count_from(*inner, first);
            auto* program = dynamic_cast<km::program_command*>(command);
            if (auto* files = program ? program->files.tree() : nullptr) {
                files->set_command_index(files->get_command_index() - first);
                count_from(*files, first);
            }
        }
    }

    // Times are those of the import, and stand in no definition.
    static std::string coded(km::cm_package& package) {
        package.creation_time = package.last_modification_time = 0;
        count_from(package, package.get_command_index());
        package.set_command_index(0);
        return encoded(package);
    }

    scratch_dir scratch_;
    km::spmessage messages_;
    km::text_importer importer_;
};

} // namespace km_test
