// planned_step: what one command would do, in plain words
// no format
// invariant: nothing is run or changed
#include "planned_step.h"

#include "kept_file_object.h"
#include "object_command.h"
#include "program_command.h"
#include "restart.h"

namespace kmhost {

namespace {

planned_step program_step(const km::program_command& command, int action) {
    const auto* one = command.program_for(action, km::p_do);
    if (!one)
        return {};
    const std::string arguments = one->arguments.mbcs_str();
    return {"run", one->path.mbcs_str() + (arguments.empty() ? "" : " " + arguments),
            command.caption.mbcs_str()};
}

planned_step restart_step(int option) {
    switch (option) {
    case km::restart::after:
        return {"restart", "this machine behind the operation", ""};
    case km::restart::immediately:
        return {"restart", "this machine at once", ""};
    default:
        return {};
    }
}

planned_step add_step(km::cm_add_object& add) {
    const std::string path = add.object->get_name().mbcs_str();
    auto* kept = dynamic_cast<km::km_kept_file*>(add.object);
    if (!add.object->exists(km::p_do))
        return {"add", path, ""};
    if (!add.is_to_be_added())
        return {"leave", path, ""};
    if (kept && kept->leaves_present())
        return {"keep", path,
                "it was changed; what the package brings comes to " + path + km::kept_suffix};
    return {"replace", path, ""};
}

} // namespace

planned_step step_of_install(km::cm_command& command) {
    if (const auto* program = dynamic_cast<const km::program_command*>(&command))
        return program_step(*program, km::a_execute);
    if (const auto* restart = dynamic_cast<const km::restart*>(&command))
        return restart_step(restart->during_install);
    auto* add = dynamic_cast<km::cm_add_object*>(&command);
    return add && add->object && add->is_effective ? add_step(*add) : planned_step{};
}

planned_step step_of_remove(km::cm_command& command) {
    if (const auto* program = dynamic_cast<const km::program_command*>(&command))
        return program_step(*program, km::a_reverse);
    if (const auto* restart = dynamic_cast<const km::restart*>(&command))
        return restart_step(restart->during_remove);
    return {};
}

} // namespace kmhost
