// variable_list: names and values in a chain, and their substitution
//
// A reference to a variable is "$(" name ")"; there is no other syntax and no escape. References
// are resolved from the right, so that an inner one becomes part of the outer one's name. A name
// that no list of the chain knows stays in the text as it stands.
#pragma once

#include "hashtable.h"
#include "ustring.h"
#include "vector.h"

namespace km {

// Names and values (ustrings), and behind them the next list of a chain: the first list that knows
// a name wins. The list owns the lists behind it.
//
// Coded form: a chain as its last list; that as the base's form, then iterator field 100 of pairs.
class variable_list : public Hashtable {
  public:
    // Purposes of the process-wide chains, in the order in which substitution asks for one.
    enum purpose : int { for_decoder = 0, for_autopack = 1, for_importer = 2, purposes = 3 };

    variable_list() : Hashtable(21, 0.75F) {}
    // A copy of this list's own names; the lists behind it are not copied.
    variable_list(const variable_list& other) : Hashtable(other) {}
    variable_list& operator=(const variable_list& other);
    ~variable_list() override;

    // The resolved value, new and the caller's, or null.
    virtual ustring* get_value(const ustring& name);
    // Value of the first key of this list alone that, as a pattern, matches the name.
    virtual ustring* get_value_match_pattern(const ustring& name, int ignore_case);
    // As get_value, but also answers (empty) for names whose value is known at run time only.
    virtual ustring* check_defined(const ustring& name);
    // In this list or those behind it.
    virtual int contains(const ustring& name);
    using Hashtable::contains;

    // Puts a name, replacing an older value.
    void set_value(const ustring& name, const ustring& value);

    // The last list of the chain.
    variable_list* get_defaults();
    // The next list, or null.
    variable_list* get_next() const { return defaults_; }
    // Puts a list behind this one if there is none; else in the place of the last one of the chain,
    // which is deleted. Takes it over; null counts as an empty list.
    void change_defaults(variable_list* list);

    // Resolves the references in the text, through the process-wide chain that is asked first; not
    // through this list. 1, or 0 if one stayed (but one at position 0 or 1 alone leaves 1).
    //
    // Cycles, more than 64 levels, a text above 4 Mi characters and more than 100,000 look-ups per
    // outermost call count as undefined, with a warning trace.
    int substitute_variables(ustring& text);
    // Builds the table of values for substitute_values, without the names in `excluded` (ustrings).
    void start_substitute_values(const vector& excluded);
    // Turns values back into references, the longest value first.
    void substitute_values(ustring& text);
    // The first undefined name in the text, or empty.
    ustring lookup_undefined_variables(const ustring& text);
    // "$(" + name + ")", new and the caller's.
    static ustring* variable_name(const ustring& name);

    // The chain that substitution of a purpose goes through; lent, null takes it away.
    static void set_chain(purpose of, variable_list* chain);
    static variable_list* get_chain(purpose of);

    codable* clone() const override { return new variable_list(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;

  protected:
    // A copy of this list's own value of the name, or null.
    ustring* own_value(const ustring& name) const;
    // Resolves a value that was found and hands it on; null stays null.
    ustring* resolved(ustring* value);

  private:
    static bool mentions_itself(const ustring& name, const ustring& value);
    void add_pairs(const variable_list* head, const vector& excluded);

    variable_list* defaults_ = nullptr;
    vector* substitute_cache_ = nullptr;
};

// Macros of another platform's registry, which may stay undefined; none here.
int isAWinRegMacro(const ustring& name);

} // namespace km
