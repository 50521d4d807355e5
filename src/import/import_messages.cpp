// import_messages: what is told about a text definition
// no format
// invariant: each text begins with its severity; the place of a fault is its first argument
#include "import_messages.h"

#include <iterator>

namespace km {

// %1$s is "file:line:column", the last argument the line itself with a mark under the place.
const char* const import_catalog[] = {
    "kmimport",
    "E %1$s: The file cannot be read: %2$s.\n",
    "E %1$s: The file is longer than %2$s bytes.\n%3$s",
    "E %1$s: The text is not UTF-8.\n%2$s",
    "E %1$s: The control character %2$s cannot stand here.\n%3$s",
    "E %1$s: The quote is not closed on its line. A line feed inside a value is written \\n.\n%2$s",
    "E %1$s: There is no escape '\\%2$s'; \\\\ \\\" \\n \\t \\r and \\xHH are known.\n%3$s",
    "E %1$s: The value is longer than %2$s bytes.\n%3$s",
    "E %1$s: Expected %2$s, found %3$s.\n%4$s",
    "E %1$s: The block '%2$s' is not closed.\n%3$s",
    "E %1$s: Blocks are nested deeper than %2$s.\n%3$s",
    "E %1$s: A definition begins with the line '%2$s'.\n%3$s",
    "E %1$s: Version %2$s of the definition language is not known; write %3$s.\n%4$s",
    "E %1$s: The definition holds no block '%2$s'.\n%3$s",
    "E %1$s: Nothing may stand behind the package, found %2$s.\n%3$s",
    "E %1$s: There is no block '%2$s' in '%3$s'.%4$s\n%5$s",
    "E %1$s: The block '%2$s' cannot stand in '%3$s'.\n%4$s",
    "E %1$s: There is no attribute '%2$s' in '%3$s'.%4$s\n%5$s",
    "E %1$s: '%2$s' was given before, in line %3$s.\n%4$s",
    "E %1$s: The block '%2$s' was given before.\n%3$s",
    "E %1$s: The attribute '%2$s' of '%3$s' is missing.\n%4$s",
    "E %1$s: '%2$s' takes y or n, not '%3$s'.\n%4$s",
    "E %1$s: '%2$s' takes a whole number, not '%3$s'.\n%4$s",
    "E %1$s: '%2$s' takes pairs of hexadecimal digits, not '%3$s'.\n%4$s",
    "E %1$s: '%2$s' takes one of %4$s, not '%3$s'.%5$s\n%6$s",
    "E %1$s: '%2$s' must lie between %4$s and %5$s, and is '%3$s'.\n%6$s",
    "E %1$s: '%2$s' may hold %4$s only, and is '%3$s'.\n%5$s",
    "E %1$s: '%2$s' is a block: write %2$s { ... }.\n%3$s",
    "E %1$s: '%2$s' is an attribute: write %2$s = value.\n%3$s",
    "E %1$s: Nothing on this machine can build '%2$s'.\n%3$s",
    "E %1$s: '%2$s' cannot be '%3$s'.\n%4$s",
    "E %1$s: %2$s more faults are not listed.\n",
    ("W %1$s: Nothing defines the variable '%2$s'; default_variables could.%3$s "
     "(undefined-variable)\n%4$s"),
    "E %1$s: The variable '%2$s' has no value: references go round in a circle.\n%3$s",
    "E %1$s: '%2$s' is no condition: %3$s\n%4$s",
    ("W %1$s: When the package is removed, nothing puts back what this '%2$s' takes away. "
     "(not-put-back)\n%3$s"),
    ("W %1$s: When the package is removed, nothing takes back what this '%2$s' does: it has no "
     "remove_path. (program-stays)\n%3$s"),
    "W %1$s: '%2$s' names no source, so there is nothing to pack. (no-source)\n%3$s",
    "W %1$s: The source '%2$s' cannot be packed: %3$s. (no-source)\n%4$s",
    "W %1$s: '%2$s' in line %3$s replaces the file, and this with it. (replaced-text)\n%4$s",
    "W %1$s: Lint has no finding '%2$s' that could be allowed.%3$s\n%4$s",
    "E %1$s: The text looks like UTF-16. Save it as UTF-8.\n%2$s",
};

static_assert(std::size(import_catalog) == import_messages_end);

} // namespace km
