// text_exporter: writes a text definition
//
// What has its default by the rules is left out. The first value of an attribute counts where a
// stanza gets it twice: groups without a stanza of their own write theirs into the one around them.
#pragma once

#include "exporter.h"
#include "rule_book.h"

namespace km {

class text_exporter : public exporter {
  public:
    ~text_exporter() override;
    // Makes the file anew, beside its place; close() puts it there. 0 without the rules or where
    // the directory cannot be written.
    int open(const pathname& path) override;
    // The file appears, whole and flushed; nothing appears where writing failed.
    void close() override;
    void put_boolean(const char* name, int value) override;
    void put_string(const char* name, const ustring& value) override;
    void put_pathname(const char* name, const pathname& value) override;
    void put_integer(const char* name, int value) override;
    void put_object(const char* name, const codable* value) override;
    void set_add_mode(int) override {}
    int is_shared_allowed() override;
    ustring current_stanza() override;
    ustring stanza_context() override;
    void begin_stanza(const char* name) override;
    void end_stanza() override;

    // Whether all was written; errno tells why not.
    bool good() const { return good_; }
    // What is to be written.
    const std::string& text() const { return text_; }

  private:
    struct open_stanza {
        std::string name;
        std::string key;
        std::vector<std::string> written; // names of its attributes
    };

    std::string indent() const { return std::string(open_.size() * 2, ' '); }
    // Null where there are no rules for it.
    const attribute_descriptor* rule_of(const char* name) const;
    void put(const char* name, const std::string& value);
    bool is_first(const char* name);

    rule_book book_;
    std::string path_;
    std::string text_;
    std::vector<open_stanza> open_;
    bool open_file_ = false;
    bool good_ = false;
};

} // namespace km
