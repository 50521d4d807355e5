// package_version: well-formed versions, "name^version" texts, order of versions
#pragma once

#include "ustring.h"

namespace km {

// Whether the text can be the version of a package: 1 to 64 bytes in the default code page, no dot
// at either end, no two dots in a row, and none of * ? ! , ; : ^ ' " and blank.
int sp_check_version(const ustring& version);

// Splits at the first "^", or where there is none at the first ".". Returns that character; 0 if
// there is neither: the name is the whole text then, the version empty.
char sp_split_name(const ustring& text, ustring& name, ustring& version);

// Order of two versions, read in step as numbers, words and dots: negative, 0 or positive, and no
// more than the sign means anything. Numbers compare as such (1.10 is above 1.9), everything else
// as text; a number stands before a word; what ends first is lower (1.2 is below 1.2.0).
int compare_versions_znp(const ustring& a, const ustring& b);
// The same for qsort over an array of `const char*`: the arguments point to the pointers.
int compare_versions_znp(const void* a, const void* b);
// Literals would be taken for the arguments of qsort.
int compare_versions_znp(const char* a, const char* b) = delete;
int compare_versions_znp(const char16_t* a, const char16_t* b) = delete;

} // namespace km
