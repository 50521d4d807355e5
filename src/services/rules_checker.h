// rules_checker: reader of the rules that a text definition obeys
#pragma once

#include "pathname.h"
#include "rule_descriptors.h"

namespace km {

class tokenizer;

// The rules of the definition language, out of the file "rules.spr" (the file's grammar:
// docs/formats/rules.md). An importer asks it what may stand where.
class rules_checker {
  public:
    rules_checker() = default;
    rules_checker(const rules_checker&) = delete;
    rules_checker& operator=(const rules_checker&) = delete;

    // Reads a file in place of what was known. 1; or 0 with `error_line`: -1 if the file cannot be
    // read, else the line near which it is wrong (message 186), and the reason in the trace. Bytes
    // that are no characters are a fault of their line. What follows the last stanza and is no word
    // ends the reading without a word. After a failure the fields hold what was read.
    int initialize(const pathname& path);

    // 1 if the version is one of `versions`: the first "***" in `signature` becomes it. Else 0, and
    // `version` becomes the last of the list (untouched if the list is empty).
    int validate_version(ustring& version);

    // The stanza of that name, or null; lent. Where several contexts have a stanza of one name:
    // the one for `context`, and `name` becomes the key that it stands under ("name.context"); if
    // there is none for it, the first.
    stanza_descriptor* get_stanza_descriptor(ustring& name, const ustring& context) const;

    // The attribute of the stanza (a key of `stanzas`) or of those it inherits from, depth first in
    // their order; the first hit counts. Null if there is none; lent. Circles are passed over.
    attribute_descriptor* get_attribute_descriptor(const ustring& attribute,
                                                   const ustring& stanza) const;

    ustring versions;  // separated by ':'
    ustring signature; // first line of a definition; "***" stands for the version
    ustring root;      // name of the outermost stanza
    Hashtable stanzas; // ustring to stanza_descriptor; later contexts under "name.context"
    int error_line = 0;

  private:
    int parse(tokenizer& from);
    int process_versions(tokenizer& from);
    int process_signature(tokenizer& from);
    int process_stanzas(tokenizer& from);
    int process_stanza(tokenizer& from, stanza_descriptor& into);
    int process_stanza_keyword(tokenizer& from, const ustring& key, stanza_descriptor& into);
    int process_stanza_attribute(tokenizer& from, attribute_descriptor& into);
    int process_attribute_value(tokenizer& from, const ustring& key, attribute_descriptor& into);
    void keep(const ustring& name, stanza_descriptor* stanza);
};

} // namespace km
