// definition_problems: the faults of a text definition, with their places
#pragma once

#include "import_messages.h"

#include <string>
#include <vector>

namespace km {

class importer;
class spmessage;

// Lines and columns count from 1; a column counts characters. 0: no place.
struct text_place {
    int line = 0;
    int column = 0;
};

struct definition_problem {
    import_message key;
    text_place place;
    std::vector<std::string> arguments; // what the message names, without place and line
};

// Collects them in the order of their places, at most a hundred.
class definition_problems {
  public:
    static constexpr int most = 100;

    void begin(const std::string& file_name);
    // The text the places refer to; must live as long as problems are told.
    void set_text(const std::string* text) { text_ = text; }
    void add(import_message key, text_place place, std::vector<std::string> arguments = {});
    // What is added now is only counted.
    bool is_full() const { return problems_.size() >= most; }
    bool any() const { return !problems_.empty(); }
    int count() const { return static_cast<int>(problems_.size()) + left_out_; }
    const std::vector<definition_problem>& all() const { return problems_; }
    // Adds a message for each, sorted by place.
    void tell(spmessage& messages);

  private:
    std::string place_text(text_place place) const;
    std::string marked_line(text_place place) const;
    void tell_one(spmessage& messages, const definition_problem& one) const;

    std::string file_;
    const std::string* text_ = nullptr;
    std::vector<definition_problem> problems_;
    int left_out_ = 0;
};

// The word nearest to `word`, empty where none is near.
std::string nearest_word(const std::string& word, const std::vector<std::string>& known);
// " Did you mean 'WORD'?", or nothing for an empty word.
std::string hint_text(const std::string& nearest);

// Bytes at the front of `text` that are well-formed UTF-8.
size_t valid_utf8(const std::string& text);

} // namespace km
