// report_fixture: a home for reports, channels that note what reaches them, and coding in memory
#pragma once

#include "StatusHandler.h"
#include "formatter.h"
#include "log_protocol_factory.h"
#include "message.h"
#include "proxy_kinds.h"
#include "report.h"
#include "report_filter.h"
#include "ustring_writer.h"

#include "support/coded.h"
#include "support/recording_command.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <unistd.h>

namespace km_test {

// One for the process: the message directory is found once.
inline scratch_dir& home() {
    static engine_home of_process;
    return of_process.dir;
}

inline std::string message_dir() {
    home();
    return km::ZNPMessage::get_work_dir().mbcs_str();
}

// Names below the message directory, in order, each behind a blank.
inline std::string names(const std::string& below = "") {
    std::string all;
    std::set<std::string> sorted;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(message_dir() + below, none))
        sorted.insert(entry.path().filename());
    for (const auto& name : sorted)
        all += " " + name;
    return all;
}

inline void empty_messages() {
    std::filesystem::remove_all(message_dir());
    std::filesystem::create_directories(message_dir());
}

inline void put_file(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string get_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The real protocol of the tests: each channel notes "channel:distribution " in `log`; those that
// `broken` names by their letter (f d m e n) fail. Made ones count in `alive`.
class noting_protocol : public km::log_protocol {
  public:
    noting_protocol() { ++alive; }
    noting_protocol(const noting_protocol& other) : log_protocol(other) { ++alive; }
    ~noting_protocol() override { --alive; }
    km::codable* clone() const override { return new noting_protocol(*this); }
    int do_file_log() override { return take('f'); }
    int do_db_log() override { return take('d'); }
    int do_mail_log() override { return take('m'); }
    int do_event_log() override { return take('e'); }
    int do_notice_log() override { return take('n'); }
    void initialize(long a, long b, const km::ustring& c, const km::ustring& d,
                    const km::ustring& e, const km::ustring& f, const km::ustring& g,
                    const km::ustring& h, const km::ustring& i, const km::ustring& j,
                    const km::ustring& k, const km::ustring& l, const km::ustring& m,
                    const km::ustring& n, long o, const km::ustring& p, const km::ustring& q,
                    const km::ustring& r, const km::ustring& s, const km::pathname& t, int v, int w,
                    km::codable* x) override {
        log_protocol::initialize(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, v, w,
                                 x);
    }
    void get_logger_name(km::ustring& logger) override { logger = km::ustring(made_by.c_str()); }

    static inline std::string log, broken, made_by = "noting";
    static inline int alive = 0, made = 0;

  private:
    int take(char channel) {
        if (broken.find(channel) != std::string::npos)
            return 0;
        log += std::string(1, channel) + ":" + distribution_id.mbcs_str() + " ";
        return 1;
    }
};

// Each kind of protocol: the end of its maker's name, and what the tests call it.
#define KM_EACH_MAKER(X)                                                                           \
    X(standard_log_protocol, standard)                                                             \
    X(bulk_log_protocol, bulk)                                                                     \
    X(delete_db_entries, delete_entries) X(delete_db_entry, delete_entry)                          \
        X(add_db_entry, add_entry) X(edit_db_entry, edit_entry) X(ext_log_protocol, ext)           \
            X(dm_log_protocol, dm) X(inventory_log_protocol, inventory) X(gw_protocol, gw)         \
                X(post_log_protocol, post) X(publish, publish) X(vfan2_db_log_protocol, vfan2_db)  \
                    X(web_protocol, web) X(device_log_protocol, device)                            \
                        X(versioning_log_protocol, versioning) X(discover_log_protocol, discover)

// Every maker gives a noting protocol and leaves its name in `made_by`.
class noting_factory : public km::log_protocol_factory {
  public:
    km::log_protocol* make(const char* by) {
        noting_protocol::made_by = by;
        ++noting_protocol::made;
        return new noting_protocol;
    }
#define KM_MAKER(kind, name)                                                                       \
    km::log_protocol* make_##kind() override { return make(#name); }
    KM_EACH_MAKER(KM_MAKER)
#undef KM_MAKER
};

// Channels that note what they took in the file `held`, a line for each time they took it.
class holding_protocol : public noting_protocol {
  public:
    int do_file_log() override { return hold('f'); }
    int do_db_log() override { return hold('d'); }
    int do_mail_log() override { return hold('m'); }
    int do_event_log() override { return hold('e'); }
    int do_notice_log() override { return hold('n'); }

    static inline std::string held;

  private:
    int hold(char channel) {
        if (broken.find(channel) != std::string::npos)
            return 0;
        const std::string line = std::string(1, channel) + distribution_id.mbcs_str() + "\n";
        const int out = ::open(held.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        const bool done =
            ::write(out, line.data(), line.size()) == static_cast<ssize_t>(line.size());
        ::close(out);
        return done;
    }
};

class holding_factory : public noting_factory {
  public:
    km::log_protocol* make_standard_log_protocol() override { return new holding_protocol; }
};

// What a delivering process does.
inline void deliver_all() {
    const std::unique_ptr<km::vector> all(
        km::StatusHandler().load(km::ZNPMessage::get_work_dir(), km::ZNPMessage::get_msg_prefix()));
    for (int i = 0; i < all->size(); ++i) {
        auto* message = all->at<km::ZNPMessage>(i);
        message->execute();
        message->serialize(1);
    }
}

inline void fill(km::report& one, const std::string& distribution) {
    one.distribution_id = u(distribution);
    one.name = u("hello");
    one.version = u("1.0");
    one.endpoint_name = u("host");
    one.state = 0x4020004; // IC--G
    one.set_protocol(new km::proxy_standard_log_protocol);
    one.init_protocol(km::pathname());
}

inline km::report* new_report(const std::string& distribution) {
    auto* one = new km::report;
    fill(*one, distribution);
    return one;
}

// What `call` writes.
template <class Call> std::string written(Call call) {
    km::array_output_channel bytes(64);
    km::ustring_writer to(&bytes);
    call(to);
    return bytes_of(bytes);
}

} // namespace km_test
