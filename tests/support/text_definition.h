// text_definition: a command on a text as a definition gives it, from one line
#pragma once

#include "support/fake_definition.h"
#include "text_commands.h"

#include <memory>
#include <sstream>

namespace km {
extern "C" {
codable* make_KmAddLine();
codable* make_KmAddToken();
codable* make_KmAddIniItem();
codable* make_KmRemoveLine();
codable* make_KmRemoveToken();
codable* make_KmRemoveIniItem();
}
} // namespace km

namespace km_test {

// "add_line path=/f|text=x".
inline std::unique_ptr<km::cm_object_command> text_command(const std::string& spec) {
    static const std::map<std::string, km::codable* (*)()> builders = {
        {"add_line", km::make_KmAddLine},         {"add_token", km::make_KmAddToken},
        {"add_ini_item", km::make_KmAddIniItem},  {"remove_line", km::make_KmRemoveLine},
        {"remove_token", km::make_KmRemoveToken}, {"remove_ini_item", km::make_KmRemoveIniItem}};
    fake_importer from;
    from.stanza = spec.substr(0, spec.find(' '));
    std::istringstream words(spec.substr(spec.find(' ') + 1));
    for (std::string one; std::getline(words, one, '|');)
        from.values[one.substr(0, one.find('='))] = one.substr(one.find('=') + 1);
    std::unique_ptr<km::codable> made(builders.at(from.stanza)());
    auto* command = dynamic_cast<km::cm_object_command*>(made.release());
    command->import(from);
    return std::unique_ptr<km::cm_object_command>(command);
}

} // namespace km_test
