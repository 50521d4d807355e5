// odd_fixture: packages of any commands, brought to a scratch machine through the engine
#pragma once

#include "kept_file_object.h"
#include "log_objects.h"

#include "life/life_fixture.h"

#include <pwd.h>

namespace km_test {

// Objects are given by full paths below the scratch directory; there is no target root.
class OddTest : public LifeTest {
  protected:
    void SetUp() override {
        set_up_engine();
        km::set_target_root(nullptr);
    }

    // Writes the package of these commands, which are taken over.
    void pack(const std::vector<km::cm_command*>& commands, const std::string& version = "1") {
        km::cm_package package;
        km::spmessage messages;
        package.messages = &messages;
        package.name = u("pkg");
        package.version = u(version);
        package.log_object_list = new km::log_object_list;
        package.log_object_list->location = pathname(dir_.at("log").c_str());
        auto* tree = new km::cm_composite_command(1);
        package.add(tree, nullptr);
        for (auto* one : commands)
            tree->add(one, nullptr);
        km::restart_data_sequence();
        km::file_output_channel out(pathname(dir_.at("pkg.spb").c_str()), 0);
        km::zipping_channel zip(&out);
        ASSERT_EQ(package.save(&zip), 0) << text_of(messages);
        out.close();
    }
    int go(const std::string& op, unsigned mode = 0, const std::string& version = "1") {
        return run(op, mode, version);
    }
    void fresh_stores() {
        for (const char* name : {"store", "work", "backup", "target"}) {
            fs::remove_all(dir_.at(name));
            fs::create_directory(dir_.at(name));
        }
    }
    template <class Object> Object* object_at(const std::string& name) {
        auto* object = new Object;
        object->set_path(u(dir_.at("target/" + name)));
        if (fs::exists(dir_.at("source/" + name)))
            object->set_source(dir_.at("source/" + name));
        return object;
    }
    std::string text(const std::string& name) {
        return dir_.exists("target/" + name) ? dir_.read("target/" + name) : "none";
    }
};

} // namespace km_test
