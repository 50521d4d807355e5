// What a second processor packs is what the first would have packed, and so are the faults.
#include "pack_ahead.h"

#include "file_object.h"
#include "object_commands.h"

#include "concrete/odd_fixture.h"

#include <functional>
#include <pthread.h>
#include <sys/stat.h>
#include <vector>

namespace {

using namespace km_test;

struct built {
    int result = 0;
    std::string bytes; // of the entries behind the tree
    std::string told;
    bool operator==(const built& other) const {
        return result == other.result && bytes == other.bytes && told == other.told;
    }
};

// Between the tree, whose entry comes first, and the data something happens to the sources; and
// from some byte on nothing can be written.
class eventful_channel : public km::output_channel {
  public:
    using km::output_channel::write;
    void write(int byte) override { bytes.push_back(static_cast<char>(byte)); }
    void write(const unsigned char* buffer, int length) override {
        if (bytes.empty() && event)
            event();
        if (bytes.size() < room)
            bytes.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(length));
    }
    int get_error() override { return bytes.size() < room ? 0 : 1; }
    std::string bytes;
    std::function<void()> event;
    size_t room = SIZE_MAX;
};

// Behind the tree, which tells the time and numbers its commands in each package anew.
std::string entries_of_data(const std::string& bytes) {
    constexpr size_t head = 30;
    const size_t first = bytes.find("d/00000001"), directory = bytes.find("PK\1\2");
    return first == std::string::npos ? "" : bytes.substr(first - head, directory - first + head);
}

class PackAheadTest : public OddTest {
  protected:
    static constexpr int files = 300;               // more than are looked at ahead
    static constexpr int victim = 250, large = 298; // the second is left to the first processor

    void SetUp() override {
        OddTest::SetUp();
        for (int i = 0; text_.size() <= size_of(large) + files; ++i)
            text_ += std::to_string(i % 10007 * 7919 % 10007) + (i % 9 ? " " : "\n");
        for (int i = 0; i < files; ++i)
            make_source(i);
    }
    void make_source(int i) {
        const timespec times[2] = {{1700000000, 0}, {1700000000, 0}};
        fs::remove_all(dir_.at(name_of(i)));
        dir_.write(name_of(i), text_.substr(static_cast<size_t>(i), size_of(i)));
        ::utimensat(AT_FDCWD, dir_.at(name_of(i)).c_str(), times, 0);
    }
    // None, some around a block, and one beyond what is held.
    static size_t size_of(int i) {
        if (i == large)
            return (8U << 20) + 1;
        return i % 50 == 0 ? 65535U + static_cast<size_t>(i / 50)
                           : static_cast<size_t>(i % 97 * 60);
    }
    static std::string name_of(int i) { return "source/" + std::to_string(i); }

    void fill(km::cm_package& package) {
        package.name = u("pkg");
        package.version = u("1");
        auto* tree = new km::cm_composite_command(1);
        package.add(tree, nullptr);
        all_.clear();
        for (int i = 0; i < files; ++i) {
            auto* one = new km::km_file;
            one->set_path(u("/opt/" + name_of(i)));
            one->set_source(dir_.at(name_of(i)));
            tree->add(km::new_add_file(one), nullptr);
            all_.push_back(one);
        }
        km::restart_data_sequence();
    }
    built build(bool with_second, const std::function<void()>& event = nullptr,
                size_t room = SIZE_MAX, int method = km::zip_entry::deflated) {
        km::cm_package package;
        km::spmessage messages;
        package.messages = &messages;
        fill(package);
        eventful_channel out;
        out.event = event;
        out.room = room;
        km::zipping_channel zip(&out);
        zip.set_method(method);
        const auto second = with_second ? std::make_unique<km::pack_ahead>(package) : nullptr;
        const int result = package.save(&zip);
        return {result, entries_of_data(out.bytes), text_of(messages)};
    }

    std::string text_;
    std::vector<km::km_file*> all_; // of the last package
};

TEST_F(PackAheadTest, packs_the_same_bytes) {
    const built alone = build(false);
    EXPECT_EQ(alone.result, 0) << alone.told;
    EXPECT_GT(alone.bytes.size(), 100000U);
    EXPECT_TRUE(build(true) == alone);
    const built stored = build(false, nullptr, SIZE_MAX, km::zip_entry::stored);
    EXPECT_TRUE(build(true, nullptr, SIZE_MAX, km::zip_entry::stored) == stored);
}

TEST_F(PackAheadTest, gives_what_is_next_and_drops_what_was_passed_over) {
    km::cm_package package;
    fill(package);
    package.load_command(1);
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    zip.set_method(km::zip_entry::deflated);
    EXPECT_EQ(km::take_packed_ahead(*all_[0], zip), nullptr); // nobody is at work
    const km::pack_ahead second(package);
    const auto given = km::take_packed_ahead(*all_[5], zip);
    ASSERT_NE(given, nullptr);
    EXPECT_EQ(given->size, static_cast<long>(size_of(5)));
    EXPECT_EQ(km::take_packed_ahead(*all_[2], zip), nullptr);
    EXPECT_EQ(km::take_packed_ahead(*all_[large], zip), nullptr);
    const km::km_file other(*all_[files - 1]);
    EXPECT_EQ(km::take_packed_ahead(other, zip), nullptr);
    EXPECT_NE(km::take_packed_ahead(*all_[files - 1], zip), nullptr);
    zip.set_level(1);
    EXPECT_EQ(km::take_packed_ahead(*all_[files - 1], zip), nullptr);
}

TEST_F(PackAheadTest, has_the_same_faults) {
    const std::string path = dir_.at(name_of(victim));
    const auto write = [&](int i, size_t size) { dir_.write(name_of(i), std::string(size, 'x')); };
    const std::function<void()> events[] = {
        [&] { write(victim, size_of(victim)); },
        [&] { write(victim, size_of(victim) + 1); },
        [&] { write(victim, 1); },
        [&] { write(large, size_of(large)); },
        [&] { fs::remove(path); },
        [&] {
            fs::remove(path);
            fs::create_directory(path);
        },
        [&] {
            fs::remove(path);
            fs::create_symlink(dir_.at(name_of(victim + 1)), path);
        },
    };
    const auto with_event = [&](bool with_second, const std::function<void()>& event) {
        make_source(victim);
        make_source(large);
        return build(with_second, event);
    };
    for (const auto& event : events) {
        const built alone = with_event(false, event);
        EXPECT_NE(alone.result, 0);
        EXPECT_NE(alone.told, "");
        const built with_second = with_event(true, event);
        EXPECT_TRUE(with_second == alone) << with_second.told << alone.told;
    }
}

TEST_F(PackAheadTest, tells_of_a_full_disk_alike) {
    for (const size_t room : {size_t{10}, size_t{40000}, size_t{300000}}) {
        const built alone = build(false, nullptr, room);
        EXPECT_NE(alone.result, 0);
        const built with_second = build(true, nullptr, room);
        EXPECT_EQ(with_second.result, alone.result) << room;
        EXPECT_EQ(with_second.told, alone.told) << room;
    }
}

TEST_F(PackAheadTest, goes_on_where_no_thread_is_to_be_had) {
    pthread_attr_t usual, huge;
    ASSERT_EQ(::pthread_getattr_default_np(&usual), 0);
    ::pthread_attr_init(&huge);
    ::pthread_attr_setstacksize(&huge, size_t{1} << 47);
    ASSERT_EQ(::pthread_setattr_default_np(&huge), 0);
    pthread_t thread;
    ASSERT_NE(::pthread_create(
                  &thread, nullptr, [](void* none) { return none; }, nullptr),
              0);
    const built alone = build(true);
    ::pthread_setattr_default_np(&usual);
    ::pthread_attr_destroy(&huge);
    EXPECT_TRUE(build(true) == alone);
}

} // namespace
