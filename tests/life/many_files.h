// many_files: a package of files that lie in one directory, with commands between them
#pragma once

#include "life_fixture.h"

#include "temporary_name.h"
#include "zip_entry.h"

namespace km_test {

inline std::string path_of(int i) { return "/opt/many/f" + std::to_string(10 + i); }
inline std::string text_of_file(int i) {
    return std::string(1000, static_cast<char>('a' + i % 26));
}

// Gives the other thread all the time that it may want, then acts.
class rest : public trap {
  public:
    rest() : trap("rest") {}
    codable* clone() const override { return new rest(*this); }
    const char* codable_name() const override { return "com.ombrel.sd.cmObjects.KmtRest"; }
    void do_execute(int action, int) override {
        ::usleep(30'000);
        if (act)
            act(action);
        result = success;
    }
    static inline std::function<void(int action)> act;
};
inline km::codable* make_rest() { return new rest; }

class ManyFiles : public LifeTest {
  protected:
    // A rest stands behind each `rests`-th file.
    void build_many(int files, int rests) {
        rest::act = nullptr;
        km::library_loader::instance()->put(
            ustring("make_KmtRest"),
            km::func_ptr(reinterpret_cast<void*>(reinterpret_cast<void (*)()>(&make_rest))));
        for (int i = 0; i < files; ++i)
            add_file("source" + path_of(i), text_of_file(i), modes[i % 4], packed_at);
        km::cm_package package;
        package.messages = &messages_;
        package.name = u("pkg");
        package.version = u("1");
        auto* tree = new km::cm_composite_command(1);
        package.add(tree, nullptr);
        add<km::km_directory>(*tree, km::new_add_directory, "/opt/many");
        for (int i = 0; i < files; ++i) {
            add<km::km_file>(*tree, km::new_add_file, path_of(i));
            left_by_a_cut_run_.push_back("/opt/many/" +
                                         km::temporary_name_of(path_of(i), last_index(), &package));
            if (i % rests == 0)
                tree->add(new rest, nullptr);
        }
        km::file_output_channel out(pathname(dir_.at("pkg.spb").c_str()), 0);
        km::zipping_channel zip(&out);
        zip.set_method(km::zip_entry::deflated); // nothing is inflated ahead of what is stored
        km::restart_data_sequence();
        km::set_target_root(nullptr); // the machine that packs
        ASSERT_EQ(package.save(&zip), 0) << text_of(messages_);
        out.close();
        ASSERT_EQ(km::set_target_root(dir_.at("target").c_str()), 1);
    }
    static int last_index() {
        const trap next; // takes a number
        return next.command_index - 1;
    }
    void expect_all_in_place() {
        auto should = picture_of(dir_.at("source/opt/many"));
        EXPECT_EQ(difference(picture_of(dir_.at("target/opt/many")), should), "");
    }

    static constexpr mode_t modes[] = {0644, 04755, 0400, 02770};
    km::spmessage messages_;
    std::vector<std::string> left_by_a_cut_run_;
};

} // namespace km_test
