// user_scope: packages of one user, in the home directory, without rights
// no format
// invariant: what is not below the home directory is not touched
#include "user_scope.h"

#include "composite_command.h"
#include "object_command.h"
#include "object_words.h"
#include "package.h"
#include "tree_walk.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr int of_user = 2;
bool is_entered = false;

std::string home_directory() {
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/')
        return home;
    const passwd* user = ::getpwuid(::geteuid());
    return user && user->pw_dir ? user->pw_dir : "";
}

bool has_step_up(const std::string& path) { return (path + "/").find("/../") != std::string::npos; }

// Why a command is none of a user's part; "" if it is.
std::string fault_of(km::cm_command& command, const std::string& home) {
    const std::string what = command.get_name().mbcs_str();
    if (command.get_scope() != of_user)
        return "'" + what + "' is a part of the machine's";
    auto* object = dynamic_cast<km::cm_object_command*>(&command);
    if (!object || !object->object)
        return "";
    const std::string path = path_of(*object->object);
    if (has_step_up(path) || (path + "/").compare(0, home.size(), home) != 0)
        return path + " is not below " + home;
    return "";
}

// A container is entered whosever it is, but what it holds is backed up only where it is the
// user's.
void give_containers(km::cm_composite_command& tree) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();)
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(all.nextElement())) {
            inner->scope |= of_user;
            give_containers(*inner);
        }
}

} // namespace

std::string user_state_directory() {
    const char* given = std::getenv("XDG_STATE_HOME");
    if (given && given[0] == '/')
        return std::string(given) + "/kmcore";
    const std::string home = home_directory();
    return home.empty() ? "" : home + "/.local/state/kmcore";
}

void enter_user_scope() { is_entered = true; }
bool in_user_scope() { return is_entered; }

bool fits_user_scope(km::cm_package& package, outcome& result) {
    if (!is_entered)
        return true;
    std::string home = home_directory();
    while (home.size() > 1 && home.back() == '/')
        home.pop_back();
    if (home.empty() || home == "/") {
        result.fail(exit_failed, "user", "There is no home directory for --user.");
        return false;
    }
    std::string fault;
    each_leaf(package, [&](km::cm_command& command) {
        if (fault.empty())
            fault = fault_of(command, home + "/");
    });
    if (fault.empty()) {
        give_containers(package);
        return true;
    }
    result.fail(exit_refused, "user",
                "The package is not one for --user: " + fault +
                    ". 'kmctl build --per-user' makes one, with a --to below $(home_path).",
                "refused");
    return false;
}

} // namespace kmhost
