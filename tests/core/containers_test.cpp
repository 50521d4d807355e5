// Lists, vectors, maps and the small records.
#include "hashtable.h"
#include "link_list.h"
#include "pair.h"
#include "ptr_vector.h"
#include "setup_string.h"
#include "tokens.h"
#include "ustring.h"
#include "values.h"
#include "vector.h"

#include <gtest/gtest.h>
#include <string>

using km::Hashtable;
using km::ustring;
using km::vector;

namespace {

class numbered_link : public km::uncoded<km::codable_link::link> {
  public:
    explicit numbered_link(int n, int* alive) : number(n), alive_(alive) { ++*alive_; }
    ~numbered_link() override { --*alive_; }
    km::codable* clone() const override { return new numbered_link(number, alive_); }
    int number;

  private:
    int* alive_;
};

std::string order(const km::list& list) {
    std::string text;
    for (km::list_iterator it(list); it.hasMoreElements();)
        text += std::to_string(static_cast<numbered_link*>(it.nextElement())->number);
    return text;
}

ustring word(const char* text) { return ustring(text); }

} // namespace

TEST(List, OwnsItsLinksAndKeepsTheirOrder) {
    int alive = 0;
    {
        km::list list;
        auto* first = new numbered_link(1, &alive);
        list.push_back(first);
        list.push_back(new numbered_link(3, &alive));
        list.insert_after(new numbered_link(2, &alive), first);
        EXPECT_EQ(order(list), "123");
        list.reverse();
        EXPECT_EQ(order(list), "321");
        list.unlink(first);
        EXPECT_EQ(list.size(), 2);
        EXPECT_EQ(first->next, nullptr);
        delete first;
        list.remove(list.front());
        EXPECT_EQ(order(list), "2");
    }
    EXPECT_EQ(alive, 0);
}

TEST(Vector, IndexesAreBoundedAndOwnershipIsObeyed) {
    vector names;
    names.insert(new ustring("b"), 1000);
    names.insert(new ustring("a"), -5);
    names.push_back(new ustring("c"));
    EXPECT_EQ(names.index_of(word("b")), 1);
    EXPECT_EQ(names.index_of(word("z")), -1);
    EXPECT_EQ(names.index_of(km::long_value(1)), -1);
    EXPECT_EQ(names[7], nullptr);
    vector copy(names);
    names.remove(99);
    EXPECT_EQ(names.size(), 2);
    EXPECT_EQ(copy.size(), 3);
    ustring on_stack("not owned");
    vector lent;
    lent.set_owns(0);
    lent.push_back(&on_stack);
    lent.clear();
    EXPECT_EQ(lent.size(), 0);
    vector().remove(0);
}

TEST(Hashtable, GrowsAtTheSixteenthEntryAndLosesNothing) {
    Hashtable table;
    for (int i = 0; i < 15; ++i)
        ASSERT_EQ(table.put(km::long_value(i * 21), word("x")), 1);
    EXPECT_EQ(table.get_capacity(), 21);
    ASSERT_EQ(table.put(km::long_value(15 * 21), word("last")), 1);
    EXPECT_EQ(table.get_capacity(), 43);
    EXPECT_EQ(table.get_initial_capacity(), 21);
    for (int i = 0; i < 16; ++i)
        EXPECT_NE(table.get(km::long_value(i * 21)), nullptr) << i;
    int seen = 0;
    for (km::Keyslist keys(table); keys.hasMoreElements(); ++seen)
        keys.nextElement();
    EXPECT_EQ(seen, 16);
}

TEST(Hashtable, APresentKeyKeepsItsValueAndUpdateReplacesIt) {
    Hashtable table;
    EXPECT_EQ(table.put(word("k"), word("old")), 1);
    EXPECT_EQ(table.put(word("k"), word("new")), 0);
    EXPECT_EQ(table.is_duplicate(), 1);
    EXPECT_EQ(*table.get_as<ustring>(word("k")), word("old"));
    table.update(new ustring("k"), new ustring("new"));
    EXPECT_EQ(*table.get_as<ustring>(word("k")), word("new"));
    const ustring key("k"), absent("absent");
    EXPECT_EQ(table.remove(&absent), 1);
    EXPECT_EQ(table.remove(&key), 1);
    EXPECT_EQ(table.size(), 0);
    EXPECT_EQ(table.get_last_entry(), nullptr);
}

TEST(Hashtable, KeysOfOtherClassesAreNeverEqual) {
    Hashtable table;
    table.put(km::long_value(97), word("number"));
    EXPECT_EQ(table.get(word("a")), nullptr); // the same hash
    Hashtable copy(table);
    table.clear();
    EXPECT_NE(copy.get(km::long_value(97)), nullptr);
}

TEST(HashtableDeathTest, ABadCapacityEndsTheProcess) {
    EXPECT_EXIT(Hashtable(0, 0.75F), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(Hashtable(21, 0), testing::ExitedWithCode(1), "");
}

TEST(SortedPtrVector, WithDuplicatesTheFirstOfEqualItemsIsFound) {
    class by_number : public km::sorted_ptr_vector {
      public:
        by_number() : km::sorted_ptr_vector(2, 2) {}
        int compare(const void* a, const void* b) const override {
            return *static_cast<const int*>(a) - *static_cast<const int*>(b);
        }
    } numbers;
    int values[] = {5, 1, 3, 3, 3, 4};
    for (int& value : values)
        numbers.insert(&value);
    EXPECT_EQ(numbers.count(), 4);
    numbers.set_duplicates(1);
    numbers.insert(&values[3]);
    int index = 0;
    EXPECT_EQ(numbers.search(&values[2], index), 1);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(numbers.count(), 5);
    EXPECT_EQ(numbers.at(-1), nullptr);
}

TEST(Pair, SplitsAtTheFirstSeparator) {
    const km::pair split(word(" a = b=c "));
    EXPECT_EQ(split.get_key(), word("a"));
    EXPECT_EQ(split.get_value(), word("b=c"));
    const km::pair whole(word(" no separator "));
    EXPECT_TRUE(whole.get_key().empty());
    EXPECT_EQ(whole.to_string(), word(" no separator "));
}

TEST(SetupString, AKeyIsFoundAnywhere) {
    km::setup_string text(word("MY_NAME=1;NAME=2;"));
    EXPECT_EQ(text.get_entry(u"NAME"), word("1"));
    text.set_entry(u"OTHER", word("x"));
    text.set_entry(u"OTHER", word("longer"));
    text.set_entry(u"EMPTY", word(""));
    text.delete_entry(u"MY_NAME");
    EXPECT_EQ(text.get_text(), word("NAME=2;OTHER=longer;"));
    EXPECT_FALSE(text.is_a_folder());
}

TEST(Tokens, EmptyItemsAreDroppedAndDifferencesFound) {
    vector tokens, other;
    km::tokenize(word(",a,,b,"), tokens, u',');
    ASSERT_EQ(tokens.size(), 2);
    km::tokenize("x;b;c", 5, other, ';');
    ustring joined, found;
    km::tokens_to_string(other, joined, ':');
    EXPECT_EQ(joined, word("x:b:c"));
    EXPECT_EQ(km::find_next_difference(tokens, other, found, 1, 0), -1);
    EXPECT_EQ(found, word("x"));
    EXPECT_EQ(km::find_next_difference(tokens, other, found, 0, 0), 1);
    EXPECT_EQ(found, word("c"));
    EXPECT_EQ(km::find_next_difference(tokens, other, found, 0, 0), 0);
    EXPECT_EQ(km::find_data("b;", 2, "x;b;c", 5), 2);
    EXPECT_EQ(km::find_data("z", 1, "x;b;c", 5), -1);
}
