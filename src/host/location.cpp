// location: where the state lies and below which root objects stand
// no format
// invariant: a state that was given is the only place that is written to, beside the root
#include "location.h"

#include "base/msg_catalogs.h"
#include "base_configuration.h"
#include "durable.h"
#include "file.h"
#include "target_root.h"
#include "user_scope.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr const char* default_product_directory = "/var/lib/kmcore";

std::string absolute(const std::string& path) {
    std::error_code error;
    const auto full = std::filesystem::absolute(path, error);
    return error ? path : full.lexically_normal().string();
}

bool make_state(const std::string& state, bool read_only, outcome& result) {
    km::file directory{km::pathname(state.c_str())};
    errno = 0;
    if (!directory.mk_tree()) {
        const int error = directory.get_error() ? directory.get_error() : errno;
        result.fail(exit_failed, "state",
                    "The state directory " + state + " cannot be made: " + std::strerror(error) +
                        ".");
        return false;
    }
    if (::access(state.c_str(), R_OK | X_OK | (read_only ? 0 : W_OK)) != 0) {
        result.fail(exit_failed, "state",
                    "The state directory " + state + " cannot be used: " + std::strerror(errno) +
                        ". Run as its owner, or give another one with --state.");
        return false;
    }
    return true;
}

// Settings, entries and profiles hold full names: a copied or moved state would work on the files
// of its original.
bool is_state_at_home(const std::string& state, outcome& result) {
    const std::string home = setting("product_dir");
    if (state.empty() || home.empty() || home.compare(0, state.size(), state) == 0)
        return true;
    result.fail(exit_failed, "moved",
                "The state " + state + " was made as " + home +
                    ", and was copied or moved since. Move it back, or begin a new one.");
    return false;
}

bool enter_root(const std::string& root, outcome& result) {
    if (km::set_target_root(root.c_str()))
        return true;
    result.fail(exit_failed, "root",
                "The root " + root + " cannot be used: " + std::strerror(errno) + ".");
    return false;
}

} // namespace

std::string data_directory() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path().parent_path() / "share" / "kmcore").string();
}

std::string state_directory(const location& where) {
    if (!where.state.empty())
        return absolute(where.state);
    if (where.is_user)
        return user_state_directory();
    const std::string root = where.root.empty() ? "/" : absolute(where.root);
    return root == "/" ? "" : root + default_product_directory;
}

bool enter_location(const location& where, outcome& result) {
    if (!enter_root(where.root.empty() ? "" : absolute(where.root), result))
        return false;
    ::setenv("SPEDITOR_LIB_PATH", data_directory().c_str(), 1);
    km::my_set_default_path((data_directory() + "/nls/%l/%N.cat").c_str());
    const std::string state = state_directory(where);
    if (where.is_user)
        enter_user_scope();
    if (state.empty() && where.is_user) {
        result.fail(exit_failed, "user", "There is no home directory for --user.");
        return false;
    }
    if (state.empty()) {
        if (::geteuid() == 0)
            ::setenv("ZNPIS_PRODUCT_DIR", default_product_directory, 1);
        km::set_configuration_location(km::pathname());
    } else {
        if (!make_state(state, where.read_only, result))
            return false;
        ::unsetenv("ZNPIS_PRODUCT_DIR");
        km::set_configuration_location(km::pathname(state.c_str()));
    }
    if (!is_state_at_home(state, result))
        return false;
    km::make_directories_durably(km::pathname(setting("working_dir").c_str()));
    return true;
}

std::string setting(const char* name) {
    return km::base_configuration().get_var(km::ustring(name)).mbcs_str();
}

temporary_state::temporary_state() {
    const char* base = std::getenv("TMPDIR");
    path_ = std::string(base && *base ? base : "/tmp") + "/kmctl.XXXXXX";
    if (!::mkdtemp(path_.data()))
        path_.clear();
}

temporary_state::~temporary_state() {
    std::error_code ignored;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ignored);
}

} // namespace kmhost
