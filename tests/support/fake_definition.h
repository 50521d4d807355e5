// fake_definition: a definition in memory, for import and export
#pragma once

#include "command.h"
#include "exporter.h"
#include "importer.h"

#include <deque>
#include <map>
#include <string>

namespace km_test {

// Answers from a map and notes the names that were asked for, in order.
class fake_importer : public km::importer {
  public:
    explicit fake_importer(std::map<std::string, std::string> of = {}) : values(std::move(of)) {}
    ~fake_importer() override {
        for (auto* command : commands)
            delete command;
    }
    int load(const km::pathname&, km::cm_package*&) override { return 0; }
    void close() override {}
    int get_boolean(const char* name, int* value) override { return get_integer(name, value); }
    int get_string(const char* name, km::ustring* value) override {
        const auto* text = find(name);
        if (text)
            *value = km::ustring(text->c_str());
        return text != nullptr;
    }
    int get_pathname(const char* name, km::pathname* value) override {
        const auto* text = find(name);
        if (text)
            *value = km::pathname(text->c_str());
        return text != nullptr;
    }
    int get_integer(const char* name, int* value) override {
        const auto* text = find(name);
        if (text)
            *value = std::stoi(*text);
        return text != nullptr;
    }
    int get_object(const char*, km::codable**) override { return 0; }
    int next_pair(km::ustring*, km::ustring*) override { return 0; }
    int next_word(km::ustring*) override { return 0; }
    void unread_word() override {}
    km::cm_command* next_command() override {
        if (commands.empty())
            return nullptr;
        auto* next = commands.front();
        commands.pop_front();
        return next;
    }
    int is_shared_allowed() override { return shared_allowed; }
    void set_add_mode(int add) override { add_mode = add; }
    km::ustring current_stanza() override { return km::ustring(stanza.c_str()); }
    km::cm_command* get_container() override { return container; }
    void set_container(km::cm_command* of) override { container = of; }
    int line_number() override { return 12; }

    std::map<std::string, std::string> values;
    std::deque<km::cm_command*> commands; // owned until they are handed out
    std::string stanza, asked;
    km::cm_command* container = nullptr;
    int shared_allowed = 1, add_mode = -1;

  private:
    const std::string* find(const char* name) {
        asked += std::string(name) + " ";
        const auto at = values.find(name);
        return at == values.end() ? nullptr : &at->second;
    }
};

// Notes what is written as "name=value ".
class fake_exporter : public km::exporter {
  public:
    int open(const km::pathname&) override { return 1; }
    void close() override {}
    void put_boolean(const char* name, int value) override { put_integer(name, value); }
    void put_string(const char* name, const km::ustring& value) override {
        text += std::string(name) + "=" + value.mbcs_str() + " ";
    }
    void put_pathname(const char* name, const km::pathname& value) override {
        put_string(name, value.get_text());
    }
    void put_integer(const char* name, int value) override {
        text += std::string(name) + "=" + std::to_string(value) + " ";
    }
    void put_object(const char*, const km::codable*) override {}
    void set_add_mode(int add) override { add_mode = add; }
    int is_shared_allowed() override { return 1; }
    km::ustring current_stanza() override { return km::ustring(stanza.c_str()); }
    km::ustring stanza_context() override { return km::ustring(context.c_str()); }
    void begin_stanza(const char* name) override { text += std::string(name) + "{ "; }
    void end_stanza() override { text += "} "; }

    std::string text, stanza, context;
    int add_mode = -1;
};

} // namespace km_test
