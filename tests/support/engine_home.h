// engine_home: what an engine finds on a machine
#pragma once

#include "base_configuration.h"
#include "library_loader.h"
#include "user_variables.h"

#include "support/scratch.h"

#include <cstdlib>

namespace km_test {

// Settings, working directory and list of libraries of a test's own.
class engine_home {
  public:
    engine_home() {
        for (const char* name : {"ZNPIS_INI_SECTION", "ZNPIS_PRODUCT_DIR", "QEP_CACHEDIR"})
            ::unsetenv(name);
        dir.write("libs.znp", KM_BUILD_LIB "/libkmcore\n");
        ::setenv("SPEDITOR_LIB_PATH", dir.path().c_str(), 1);
        km::library_loader::discard();
        dir.write("state/znpis.ini", "[#MOBILE]\nworking_dir=" + dir.at("work") +
                                         "\nbackup_dir=" + dir.at("backup") +
                                         "\nuser_file_variables=" + dir.at("znpis.var") + "\n");
        std::filesystem::create_directory(dir.at("work"));
        km::set_configuration_location(km::pathname(dir.at("state").c_str()));
    }
    ~engine_home() {
        km::user_file_variable_list::terminate();
        km::library_loader::discard();
        km::set_configuration_location(km::pathname());
        ::unsetenv("SPEDITOR_LIB_PATH");
    }
    engine_home(const engine_home&) = delete;
    engine_home& operator=(const engine_home&) = delete;

    scratch_dir dir;
};

} // namespace km_test
