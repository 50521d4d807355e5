// tokens: helpers over lists of words
#pragma once

#include "ustring.h"
#include "vector.h"

namespace km {

// Splits at the separator into new ustrings at the end of `out`; empty items are dropped.
void tokenize(const ustring& text, vector& out, char16_t separator);
// The same over exactly `length` bytes of text in the default code page.
void tokenize(const char* text, unsigned length, vector& out, int separator);
// Joins with the separator, none at the end.
void tokens_to_string(const vector& tokens, ustring& out, int separator);
// The same into a new array (delete[] by the caller); `length` is the sum of the lengths plus one
// per token.
void tokens_to_string(const vector& tokens, char*& out, unsigned& length, int separator);
// Walks b and gives the next item that is not in a. `restart` starts from the beginning; the
// position is kept between calls. 0 at the end, -1 if the first item of b is the one, 1 for others.
int find_next_difference(const vector& a, const vector& b, ustring& out, int restart,
                         int ignore_case);
// First position of the pattern in the data, or -1.
long find_data(const char* pattern, unsigned length, const char* data, unsigned size);

} // namespace km
