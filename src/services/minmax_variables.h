// minmax_variables: smallest and greatest of several values
#pragma once

#include "ustring.h"

namespace km {

// "$(MIN)" and "$(MAX)" in the file name of a path: the part of the first or last matching name, in
// the order of texts, that stands where the token stood.
class minmax_variable_list {
  public:
    minmax_variable_list() = delete;
    // New and the caller's; null if the text holds neither token.
    static ustring* substitute_MinMax(const ustring& text);

  private:
    static ustring* evaluate_MinMax(const ustring& text, int which);
    static ustring get_resolve_key(const ustring& path, const ustring& resolved);
};

} // namespace km
