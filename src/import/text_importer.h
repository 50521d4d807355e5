// text_importer: reads a text definition
//
// The whole text is read and held against the rules before anything is built, so that all faults of
// a file come at once. Then the classes pull their attributes out of the block that is open: the
// importer opens a block around each command, object and nested package that it delivers.
#pragma once

#include "definition_tree.h"
#include "importer.h"
#include "rule_book.h"

namespace km {

class text_importer : public importer {
  public:
    static constexpr long longest_file = 64L << 20;

    // Messages go to `messages`, if there is one. A package is built only from a definition without
    // a fault; 1, or 0 and `package` is null.
    int load(const pathname& path, cm_package*& package) override;
    void close() override;
    int get_boolean(const char* name, int* value) override;
    int get_string(const char* name, ustring* value) override;
    int get_pathname(const char* name, pathname* value) override;
    int get_integer(const char* name, int* value) override;
    int get_object(const char* name, codable** value) override;
    int next_pair(ustring* name, ustring* value) override;
    int next_word(ustring* word) override;
    void unread_word() override;
    cm_command* next_command() override;
    int is_shared_allowed() override;
    void set_add_mode(int add) override { add_mode_ = add; }
    ustring current_stanza() override;
    cm_command* get_container() override { return container_; }
    void set_container(cm_command* container) override { container_ = container; }
    int line_number() override { return line_; }

    // Faults of the last load.
    const definition_problems& problems() const { return problems_; }
    // What it read; until the next load.
    const std::string& text() const { return text_; }
    const definition_file& file() const { return file_; }
    const rule_book& book() const { return book_; }

  private:
    // A block that a class reads, and how far its words, commands and pairs were delivered.
    struct open_block {
        const definition_block* block;
        std::string key; // of its rules
        std::vector<const definition_attribute*> pairs;
        size_t next_block = 0;
        size_t next_pair = 0;
        bool is_word = false; // opened by next_word
    };

    bool read(const pathname& path);
    cm_package* build();
    codable* make(const definition_block& block, const std::string& builder);
    void open(const definition_block& block, bool is_word = false);
    open_block& here() { return open_.back(); }
    struct found_value {
        const attribute_descriptor* rule = nullptr;
        const std::string* text = nullptr; // null where there is neither value nor default
        int present = 0;                   // 0: the text is the default of the rules
    };
    found_value value_of(const char* name);
    bool is_object(const definition_block& block);

    rule_book book_;
    std::string text_;
    std::string default_;
    definition_file file_;
    definition_problems problems_;
    std::vector<open_block> open_;
    bool word_was_end_ = false;
    cm_command* container_ = nullptr;
    int add_mode_ = 1;
    int line_ = 0;
};

} // namespace km
