// base/msg_supp: building and listing numbered messages
#pragma once

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace km {

struct message_entry;
struct XOpenMessage;

using StringList = std::vector<std::string>;
struct time_value {
    long seconds;
};

// A value that a message carries. Messages and entries are shared, since values are copied.
using any = std::variant<std::monostate, long, unsigned long, double, std::string, time_value,
                         StringList, std::shared_ptr<message_entry>, std::shared_ptr<XOpenMessage>>;

// One numbered text with its arguments. `arguments` as made by make_msg_ent is a StringList with
// one text per position.
struct message_entry {
    std::string catalogue; // empty: none, and no id is shown
    std::string text;      // default text, a format with positions
    long key = 0;
    any arguments;
};

struct XOpenMessage {
    std::vector<message_entry> entries;
};

// Makes an entry; all arguments become texts at once, so that it can be bound later. Arguments come
// in the ascending order of the positions in `format`: an int for X d o u x, a long where an 'l'
// stands before them, a text for s. The text "$errno" stands for the words of errno. Another
// conversion makes the entry one that tells so.
message_entry make_msg_ent(const char* catalogue, long key, const char* format, va_list arguments);
// Appends such an entry; a null message is made first.
void vAddMsg(XOpenMessage*& message, const char* catalogue, long key, const char* format,
             va_list arguments);

// A list of messages of one operation, in the order in which they were added. The texts that it
// hands out are malloc memory of its own.
class spmessage {
  public:
    spmessage() = default;
    ~spmessage();
    spmessage(const spmessage&) = delete;
    spmessage& operator=(const spmessage&) = delete;

    void reset();
    // A message of the built-in table. A key that is reserved or none of the table is told as such.
    void add(long key, ...);
    // A message of another table of the same form (index 0 its name).
    void add(const char* const* catalogue, long key, ...);
    // A text without a number.
    void add(const char* text);
    // Takes the other's messages over, in front of its own ones, which are bound first.
    void insert(spmessage* other);
    // Texts of all messages, each behind its id; null if there are none. Valid until the next
    // change.
    const char* bind();
    // A line feed and the bound texts, doubled line feeds collapsed.
    void display(FILE* to);
    int get_count() const { return count_; }
    const XOpenMessage* get_message() const { return message_; }
    // The text of one message alone, bound, without its id.
    std::string text_of(int index) const;
    // The id of one message, empty if it has none.
    std::string id_of(int index) const;

  private:
    void added();
    char* bound_ = nullptr;
    int dirty_ = 0;
    XOpenMessage* message_ = nullptr;
    int count_ = 0;
};

} // namespace km
