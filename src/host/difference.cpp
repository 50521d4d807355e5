// difference: how an object on the machine differs from its definition
// no format
// invariant: what is_identical() finds different is named here
#include "difference.h"

#include "file_object.h"
#include "hard_link_object.h"
#include "kept_file_object.h"
#include "link_object.h"
#include "text_object.h"

namespace kmhost {

std::vector<std::string> differences_of(km::cm_object& object) {
    const auto* on = dynamic_cast<km::km_object*>(&object);
    struct stat about {};
    if (auto* text = dynamic_cast<km::text_object*>(&object); text && !text->is_identical(km::p_do))
        return {!text->km::text_object::exists(km::p_do) ? "missing"
                : text->may_replace() && text->exists(km::p_do)
                    ? "content"
                    : std::string(text->kind()) + " missing"};
    if (!on)
        return object.is_identical(km::p_do) ? std::vector<std::string>{}
                                             : std::vector<std::string>{"content"};
    if (!km::look_at(on->path_bytes(), about))
        return {"missing"};
    if (dynamic_cast<const km::km_kept_file*>(on) && !S_ISDIR(about.st_mode))
        return {}; // what a user made of it
    if (!on->is_same_kind(about))
        return {"kind"};
    if (dynamic_cast<const km::km_hard_link*>(on))
        return object.is_identical(km::p_do) ? std::vector<std::string>{}
                                             : std::vector<std::string>{"other file"};
    std::vector<std::string> all;
    if (auto* file = dynamic_cast<km::km_file*>(&object); file && file->has_other_content())
        all.push_back("content");
    if (const auto* link = dynamic_cast<const km::km_link*>(on)) {
        std::string text;
        if (!km::read_link(on->path_bytes(), text) || text != link->target.mbcs_str())
            all.push_back("link target");
    } else if (static_cast<int>(about.st_mode & 07777) != on->mode) {
        all.push_back("mode");
    }
    if (km::is_privileged() && (static_cast<int>(about.st_uid) != on->owner ||
                                static_cast<int>(about.st_gid) != on->group))
        all.push_back("owner");
    return all;
}

} // namespace kmhost
