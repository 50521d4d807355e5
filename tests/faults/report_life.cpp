// report_life: a message's life for the fault layer
//
//   report_life live DIR      makes a message, writes it (then notes DIR/written), delivers all but
//                             mail, writes it again, delivers the rest
//   report_life deliver DIR   what the next process does; the first one makes the settings
//
// Each time a channel gets the report it adds a line to DIR/held. Exit status 1: the message could
// not be written.
#include "reports/report_fixture.h"

#include <cstring>

using namespace km_test;

namespace {

void settle(const std::string& dir) {
    if (std::filesystem::create_directories(dir + "/work")) {
        put_file(dir + "/libs.znp", KM_BUILD_LIB "/libkmcore\n");
        put_file(dir + "/znpis.ini", "[#MOBILE]\nworking_dir=" + dir + "/work\n");
    }
    ::setenv("SPEDITOR_LIB_PATH", dir.c_str(), 1);
    km::set_configuration_location(km::pathname(dir.c_str()));
    holding_protocol::held = dir + "/held";
}

int live(const std::string& dir) {
    km::ZNPMessage message;
    if (!message.init(new_report("7"), km::priority_a) || !message.serialize(0))
        return 1;
    put_file(dir + "/written", "yes");
    noting_protocol::broken = "m";
    message.execute();
    message.serialize(1);
    noting_protocol::broken = "";
    deliver_all();
    return 0;
}

} // namespace

int main(int count, char** words) {
    if (count != 3)
        return 2;
    settle(words[2]);
    static holding_factory factory;
    km::ZNPNotificationPolicy::set_factory(&factory);
    if (std::strcmp(words[1], "live") == 0)
        return live(words[2]);
    deliver_all();
    km::ZNPMessage::remove_orphans();
    return 0;
}
