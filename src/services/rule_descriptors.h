// rule_descriptors: what a stanza and an attribute of a definition may hold
//
// Filled by rules_checker and read by an importer. Neither class is ever coded. All that they hold
// is theirs; a copy is deep.
#pragma once

#include "hashtable.h"
#include "vector.h"
#include "ustring.h"

namespace km {

// One attribute of a stanza.
class attribute_descriptor : public uncoded<codable> {
  public:
    enum Type : int {
        t_invalid = 0,
        t_boolean = 1,
        t_numeric = 2,
        t_string = 3,
        t_pathname = 4,
        t_hex_buffer = 5,
        t_single_choice = 6,
        t_multi_choice = 7,
        t_character_mask = 8,
        t_object = 9,
        t_range = 10
    };

    codable* clone() const override { return new attribute_descriptor(*this); }
    virtual long class_id() const { return 0; }
    virtual long object_size() const { return 0; }

    // The value of the choice of that key, or the key of the choice of that value. 1 if there is
    // one; else 0, and the out argument is untouched. The first choice that fits counts.
    int find_choice_by_key(const ustring& key, ustring& value) const;
    int find_choice_by_value(ustring& key, const ustring& value) const;

    Type type = t_invalid; // t_invalid until the block has told it
    int mandatory = 0;
    // Empty if the block gives none.
    ustring default_value;
    // Choices as pairs (key, value); the items of a range (minimum, maximum) or of a mask as
    // ustrings.
    vector values;
    ustring validation_rule;
    // Last component of the coded name of the class that reads an attribute of type "object".
    ustring object_builder;
};

// One stanza.
class stanza_descriptor : public uncoded<codable> {
  public:
    codable* clone() const override { return new stanza_descriptor(*this); }
    virtual long class_id() const { return 0; }
    virtual long object_size() const { return 0; }
    // Whether the text is one of the contexts.
    int has_context(const ustring& text) const { return context.index_of(text) >= 0; }

    vector context;       // ustrings: the stanzas that it may stand in; "root" for the outermost
    vector inherits;      // ustrings: the stanzas whose attributes it may hold too
    ustring builder;      // last component of the coded name of its class
    Hashtable attributes; // ustring, the attribute's name, to attribute_descriptor
};

} // namespace km
