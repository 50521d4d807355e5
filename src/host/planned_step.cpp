// planned_step: what one command would do, in plain words
// no format
// invariant: nothing is run or changed
#include "planned_step.h"

#include "kept_file_object.h"
#include "object_words.h"
#include "program_command.h"
#include "restart.h"
#include "text_object.h"

namespace kmhost {

namespace {

planned_step program_step(const km::program_command& command, int action) {
    const auto* one = command.program_for(action, km::p_do);
    if (!one)
        return {};
    const std::string arguments = one->arguments.mbcs_str();
    return {"run", one->path.mbcs_str() + (arguments.empty() ? "" : " " + arguments),
            command.caption.mbcs_str(), "", ""};
}

planned_step restart_step(int option) {
    switch (option) {
    case km::restart::after:
        return {"restart", "this machine behind the operation", "", "", ""};
    case km::restart::immediately:
        return {"restart", "this machine at once", "", "", ""};
    default:
        return {};
    }
}

planned_step add_step(km::cm_add_object& add) {
    km::cm_object& object = *add.object;
    if (!object.exists(km::p_do))
        return step_on("add", object);
    if (!add.is_to_be_added())
        return step_on("leave", object);
    auto* kept = dynamic_cast<km::km_kept_file*>(&object);
    if (kept && kept->leaves_present())
        return step_on("keep", object,
                       "it was changed; what the package brings comes to " + path_of(object) +
                           km::kept_suffix);
    // A line is added to a file that is there; an item may have another value.
    const auto* text = dynamic_cast<km::text_object*>(&object);
    return step_on(text && !text->may_replace() ? "add" : "replace", object);
}

} // namespace

planned_step step_on(const std::string& action, km::cm_object& object, const std::string& note) {
    planned_step one{action, path_of(object), note, "", ""};
    if (auto* text = dynamic_cast<km::text_object*>(&object)) {
        one.kind = text->kind();
        one.words = text->shown();
    }
    return one;
}

std::string planned_step::text() const {
    const std::string more = note.empty() ? "" : " (" + note + ")";
    if (kind.empty())
        return action + " " + path + more;
    const char* place = action == "add" ? " to " : action == "remove" ? " from " : " in ";
    return action + " " + kind + place + path + ": " + words + more;
}

nlohmann::json planned_step::as_json() const {
    nlohmann::json one = {{"action", action}, {"path", path}};
    if (!kind.empty()) {
        one["kind"] = kind;
        one["text"] = words;
    }
    return one;
}

planned_step step_of_install(km::cm_command& command) {
    if (const auto* program = dynamic_cast<const km::program_command*>(&command))
        return program_step(*program, km::a_execute);
    if (const auto* restart = dynamic_cast<const km::restart*>(&command))
        return restart_step(restart->during_install);
    auto* on = dynamic_cast<km::cm_object_command*>(&command);
    if (!on || !on->object || !on->is_effective)
        return {};
    if (auto* add = dynamic_cast<km::cm_add_object*>(&command))
        return add_step(*add);
    return stands_to_go(*on->object) ? step_on("remove", *on->object) : planned_step{};
}

planned_step step_of_remove(km::cm_command& command) {
    if (const auto* program = dynamic_cast<const km::program_command*>(&command))
        return program_step(*program, km::a_reverse);
    if (const auto* restart = dynamic_cast<const km::restart*>(&command))
        return restart_step(restart->during_remove);
    return {};
}

} // namespace kmhost
