// What of the engine's messages people see.
#include "messages.h"

#include "object_messages.h"

#include <gtest/gtest.h>

namespace {

std::string texts_of(const kmhost::outcome& result) {
    std::string all;
    for (const auto& one : result.messages)
        all += one.text + "\n";
    return all;
}

} // namespace

TEST(Messages, EachIsToldOnceAndTheLastTellsOfAllTheRoom) {
    km::spmessage list;
    const auto add = [&list](long key, const char* a, const char* b, const char* c) {
        list.add(km::object_catalog, key, a, b, c);
    };
    add(km::om_no_room, "/", "2.0 MiB", "1.0 MiB");
    add(km::om_failed, "write", "/a", "no space");
    add(km::om_no_room, "/", "2.1 MiB", "1.0 MiB");
    add(km::om_no_room, "/var", "5.0 GiB", "3.0 GiB");
    add(km::om_no_room, "/srv/deep", "9.9 MiB", "1.0 MiB");
    add(km::om_failed, "write", "/a", "no space");
    list.add("a text of its own");
    kmhost::outcome result;
    kmhost::take_messages(list, result);
    EXPECT_EQ(texts_of(result),
              "Cannot write /a: no space.\n"
              "Not enough room for the package in /var: 5.0 GiB needed, 3.0 GiB free.\n"
              "Not enough room for the package in /srv/deep: 9.9 MiB needed, 1.0 MiB free.\n"
              "a text of its own\n");
}
