// A rules file of any bytes, and the questions that an importer asks about it.
#include "rule_values.h"
#include "rules_checker.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Half of the inputs get a head, so that the stanzas are reached.
std::string file_of(const uint8_t* data, size_t size) {
    const std::string head = "versions = '1.0:1.1' signature = 'kmspd ***'\n";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    return size && data[0] & 1 ? head + bytes.substr(1) : bytes;
}

void ask(const km::rules_checker& rules, const km::ustring& stanza) {
    km::ustring name(stanza);
    const auto* found = rules.get_stanza_descriptor(name, rules.root);
    if (found != rules.stanzas.get_as<km::stanza_descriptor>(name))
        std::abort();
    rules.get_attribute_descriptor(u"none", stanza);
    km::Keyslist each(found->attributes);
    while (auto* entry = each.next_entry()) {
        auto& key = dynamic_cast<km::ustring&>(*entry->get_key());
        const auto* attribute = rules.get_attribute_descriptor(key, name);
        if (!attribute)
            std::abort();
        km::is_a_valid_default(rules.versions, *attribute);
        km::ustring value;
        attribute->find_choice_by_key(key, value);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes = file_of(data, size);
    const int memory = ::memfd_create("rules", 0);
    if (::write(memory, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
    km::rules_checker rules;
    const std::string path = "/proc/self/fd/" + std::to_string(memory);
    if ((rules.initialize(km::pathname(path.c_str())) != 0) != (rules.error_line == 0))
        std::abort();
    ::close(memory);
    km::Keyslist each(rules.stanzas);
    while (auto* entry = each.next_entry())
        ask(rules, dynamic_cast<km::ustring&>(*entry->get_key()));
    km::ustring version(u"1.0");
    rules.validate_version(version);
    return 0;
}
