// Conditions and versions that are any texts, over variables that are parts of them.
#include "dependency.h"
#include "expression.h"
#include "package_version.h"
#include "variable_list.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const km::ustring whole(text.c_str());
    const km::ustring half(text.substr(0, size / 2).c_str());
    const km::ustring rest(text.substr(size / 2).c_str());
    km::variable_list list;
    list.set_value(u"a", half);
    list.set_value(u"b", rest);
    list.set_value(u"installed_software", km::ustring(u"#installed_software#") + half);
    km::variable_list::set_chain(km::variable_list::for_decoder, &list);

    km::condition condition(whole);
    if ((condition.infix2postfix() != 0) != condition.error.empty())
        std::abort();
    if (condition.evaluate() && !condition.error.empty())
        std::abort();
    km::ustring message;
    int unresolved = 0;
    km::is_valid_dependency(&list, whole, half, rest, 3, unresolved, message);
    const int order = km::compare_versions_znp(half, rest);
    if ((order > 0) != (km::compare_versions_znp(rest, half) < 0))
        std::abort();
    return 0;
}
