// own_texts: what a package put into a file, told apart from the file itself
// no format
// invariant: the file is only read
#include "own_texts.h"

#include "package.h"
#include "text_object.h"

#include <map>

namespace km {

namespace {
// An undo asks for what the package that it takes back has put there.
bool is_of(const cm_object& text, const cm_package& package) {
    return text.package && (text.package == &package || text.package == package.partner_package);
}
} // namespace

bool read_without_own_texts(const cm_package& package, const std::string& path,
                            std::string& bytes) {
    std::map<std::string, text_object*> own; // each once: a command may have a copy that waits
    for (auto* one : text_object::living())
        if (is_of(*one, package) && one->path_bytes() == path && one->is_own())
            own.emplace(one->get_name().mbcs_str(), one);
    text_bytes text;
    if (own.empty() || !own.begin()->second->read_quietly(text))
        return false;
    for (const auto& [name, one] : own)
        one->take_out_own(text);
    // One may stand in the other.
    for (std::string before; before != text.bytes();) {
        before = text.bytes();
        for (const auto& [name, one] : own)
            one->take_out_own_frame(text);
    }
    bytes = text.bytes();
    return true;
}

} // namespace km
