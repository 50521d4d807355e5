// Substitution of variables whose values are any texts.
#include "variable_list.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    km::variable_list list;
    for (int i = 0; i < 4; ++i) {
        const size_t from = size * static_cast<size_t>(i) / 4;
        list.set_value(km::ustring(1, static_cast<char16_t>(u'a' + i)),
                       km::ustring(text.substr(from, size / 4).c_str()));
    }
    km::variable_list::set_chain(km::variable_list::for_decoder, &list);
    km::ustring out(text.c_str());
    list.substitute_variables(out);
    km::ustring back(text.c_str());
    list.substitute_values(back);
    return 0;
}
