// definition_tree: the blocks of a text definition
//
//   file  = word word block            the signature, then the package
//   block = word '{' { word '=' value | block } '}'
//   value = word | quoted text
#pragma once

#include "definition_lexer.h"

#include <memory>

namespace km {

struct definition_attribute {
    std::string name;
    std::string value;
    text_place place;       // of the name
    text_place value_place; // of the value
};

struct definition_block {
    std::string name;
    text_place place;
    text_place end;
    std::vector<definition_attribute> attributes;
    std::vector<std::unique_ptr<definition_block>> blocks;

    // The first of that name, or null.
    const definition_attribute* find(const std::string& attribute) const;
    const definition_block* find_block(const std::string& block) const;
};

struct definition_file {
    std::string signature; // its two words with one blank between them
    text_place signature_place;
    std::unique_ptr<definition_block> root; // null without one
    std::vector<definition_comment> comments;
};

constexpr int deepest_block = 128;

// What can be read of the text; faults are added to `problems`.
definition_file parse_definition(const std::string& text, definition_problems& problems);

} // namespace km
