// Package files: the tree in front, the data behind it.
#include "build_package.h"
#include "package_fixture.h"

#include "support/has.h"

using namespace km_test;
using km::cm_package;

namespace {

class Save : public PackageTest {
  protected:
    // Runs `write` on a container in the file of that name.
    template <class F> int to_file(const std::string& name, F write) {
        km::file_output_channel file(pathname(dir_.at(name).c_str()), 0);
        km::zipping_channel out(&file);
        return write(&out);
    }
    // The signature of the tree, and the names of all entries.
    std::vector<std::string> content(const std::string& name) const {
        km::file_input_channel file(pathname(dir_.at(name).c_str()));
        file.inhibit(1);
        km::unzipping_channel zip(&file);
        zip.set_skip_tail(0);
        std::vector<std::string> all(1);
        while (const auto* one = zip.get_next_entry()) {
            all.emplace_back(one->get_name());
            for (int i = 0, byte; i < 5 + 34 && all.size() == 2 && (byte = zip.read()) >= 0; ++i)
                if (i >= 5)
                    all[0] += static_cast<char>(byte);
        }
        return all;
    }
    std::unique_ptr<cm_package> loaded(const std::string& name, stores& all) {
        cm_package asker;
        all.give(asker);
        cm_package* read = nullptr;
        const int good = asker.load_list(pathname(dir_.at(name).c_str()), read);
        EXPECT_EQ(good, read ? 1 : 0);
        return std::unique_ptr<cm_package>(read);
    }
};

using strings = std::vector<std::string>;

} // namespace

TEST_F(Save, ABlockHoldsTheTreeAndTheDataAndAProfileTheTreeAlone) {
    auto package = make();
    static_cast<recorder*>(package->find("a", 1))->data = "data of a";
    EXPECT_EQ(to_file("block", [&](auto* out) { return package->save(out); }), 0);
    EXPECT_EQ(recorder::calls, (strings{"load 1 0 a", "load 1 0 b", "save 0 0 a", "save 0 0 b"}));
    EXPECT_EQ(content("block"),
              (strings{"OMBREL Software Package v4.2 - SPB", "SoftwarePackage", "a", "b"}));
    EXPECT_EQ(to_file("profile", [&](auto* out) { return package->save_sp(out); }), 0);
    EXPECT_EQ(content("profile").front().substr(0, 33), "OMBREL Software Package v4.2 - SP");
    EXPECT_NE(content("profile").front().back(), 'B');
    EXPECT_EQ(content("profile").size(), 2U);
    EXPECT_EQ(files_in("work"), 0) << "temporary files";

    stores all(dir_.at("store"));
    const auto read = loaded("block", all);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->catalog, &all.catalog);
    EXPECT_EQ(read->reference_table, &all.counts);
    ASSERT_TRUE(read->get_input_channel());
    const auto* entry = read->get_input_channel()->get_next_entry();
    ASSERT_TRUE(entry);
    EXPECT_STREQ(entry->get_name(), "a");
    unsigned char data[16] = {};
    EXPECT_EQ(read->get_input_channel()->read(data, 16), 9);
    EXPECT_STREQ(reinterpret_cast<char*>(data), "data of a");

    EXPECT_FALSE(loaded("nothing", all));
    dir_.write("text", "no container");
    EXPECT_FALSE(loaded("text", all));
    dir_.write("cut", dir_.read("block").substr(0, 200));
    EXPECT_FALSE(loaded("cut", all));
}

TEST_F(Save, DataComeFromAnotherFileOrAsADifference) {
    auto package = make({"a"});
    to_file("base", [&](auto* out) { return package->save(out); });
    km::file_input_channel file(pathname(dir_.at("base").c_str()));
    file.inhibit(1);
    km::unzipping_channel in(&file);
    in.set_skip_tail(0);
    pathname base;
    recorder::calls.clear();
    EXPECT_EQ(to_file("copy", [&](auto* out) { return package->save(&in, out); }), 0);
    EXPECT_EQ(content("copy").size(), 2U);
    EXPECT_EQ(package->save(&in, nullptr), 0) << "only what the commands do";
    EXPECT_EQ(to_file("delta", [&](auto* out) { return package->delta_save(&base, &in, out); }), 0);
    EXPECT_EQ(recorder::calls, (strings{"copy 0 0 a", "copy 0 0 a", "delta 0 0 a"}));
    recorder::calls.clear();
    EXPECT_EQ(to_file("delta", [&](auto* out) { return package->delta_save(&base, nullptr, out); }),
              0);
    EXPECT_EQ(recorder::calls, (strings{"load 1 0 a", "delta 0 0 a"}));
}

TEST_F(Save, AFailureIsTheResultAndNoTemporaryFileStays) {
    const struct {
        const char* call;
        int child, answer;
    } rows[] = {{"load 1 0 a", 9, 9}, {"load 1 0 a", 8, 8}, {"save 0 0 b", 8, 8}};
    for (const auto& row : rows) {
        recorder::results = {{row.call, row.child}};
        auto package = make();
        EXPECT_EQ(to_file("block", [&](auto* out) { return package->save(out); }), row.answer);
        EXPECT_EQ(files_in("work"), 0) << row.call;
    }
    recorder::results.clear();
    auto package = make();
    for (const bool tree_alone : {false, true}) {
        km::file_output_channel full(pathname("/dev/full"), 0);
        km::zipping_channel out(&full);
        EXPECT_EQ(tree_alone ? package->save_sp(&out) : package->save(&out), 9);
    }
    EXPECT_EQ(files_in("work"), 0);
    std::filesystem::remove_all(dir_.at("work"));
    dir_.write("work", "no directory");
    EXPECT_EQ(to_file("block", [&](auto* out) { return package->save(out); }), 9);
    EXPECT_EQ(to_file("block", [&](auto* out) { return package->save_sp(out); }), 9);
}

TEST_F(Save, AProfileBecomesABlock) {
    const pathname profile(dir_.at("profile").c_str()), block(dir_.at("block").c_str());
    auto package = make();
    to_file("profile", [&](auto* out) { return package->save_sp(out); });
    testing::internal::CaptureStderr();
    EXPECT_EQ(km::build_from_sp_file(profile, block), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(content("block").size(), 4U);

    const std::string good = dir_.read("profile");
    to_file("spb", [&](auto* out) { return package->save(out); });
    const struct {
        const char* what;
        std::string bytes;
        const char* call;
        const char* words;
        bool leaves_target;
    } rows[] = {{"no container", "text", "", "The software package is invalid", true},
                {"a block", dir_.read("spb"), "", "Operation unsuccessful", false},
                {"cut", good.substr(0, good.size() / 2), "", "Operation unsuccessful", false},
                {"no data", good, "save 0 0 a", "Operation unsuccessful", false}};
    for (const auto& row : rows) {
        dir_.write("profile", row.bytes);
        dir_.write("block", "old");
        if (*row.call)
            recorder::results[row.call] = 9;
        testing::internal::CaptureStderr();
        EXPECT_EQ(km::build_from_sp_file(profile, block), 9) << row.what;
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_HAS(told, row.words) << row.what << told;
        EXPECT_EQ(dir_.exists("block"), row.leaves_target) << row.what;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(km::build_from_sp_file(pathname(dir_.at("none").c_str()), block), 9);
    EXPECT_HAS(testing::internal::GetCapturedStderr(), "Unable to open the file");
}
