// import_messages: what is told about a text definition
#pragma once

namespace km {

// Keys of the messages about definitions; the table's name stands at index 0.
enum import_message : long {
    im_unreadable = 1,    // reason
    im_too_large,         // bytes allowed
    im_encoding,          //
    im_control,           // the character
    im_unclosed_quote,    //
    im_escape,            // the character behind the backslash
    im_value_too_long,    // bytes allowed
    im_expected,          // what, what was found
    im_unclosed_block,    // name
    im_too_deep,          // blocks allowed
    im_signature,         // what it must be
    im_version,           // version found, version known
    im_no_root,           // name of the root
    im_behind_end,        // what was found
    im_unknown_block,     // name, where, hint
    im_misplaced_block,   // name, where
    im_unknown_attribute, // name, where, hint
    im_twice,             // name, line of the first
    im_block_twice,       // name
    im_mandatory,         // name, where
    im_not_boolean,       // name, value
    im_not_number,        // name, value
    im_not_hex,           // name, value
    im_not_choice,        // name, value, choices
    im_out_of_range,      // name, value, minimum, maximum
    im_mask,              // name, value, allowed
    im_is_block,          // name
    im_is_attribute,      // name
    im_no_builder,        // name
    im_refused_value,     // name, value
    im_more,              // number of faults that are not listed
    im_no_variable,       // name, hint
    im_circle,            // name
    im_no_condition,      // name, why
    im_not_put_back,      // name of the block
    im_program_stays,     // name of the block
    im_no_source,         // name of the block
    im_bad_source,        // file, why
    im_text_before,       // name of the block that follows, its line
    im_no_finding,        // name, hint
    im_utf16,             //
    import_messages_end
};

extern const char* const import_catalog[];

} // namespace km
