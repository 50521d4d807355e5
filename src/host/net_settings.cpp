// net_settings: how servers are reached
// format: docs/formats/settings.md
// invariant: a value that is no number, or below the least, leaves the default
#include "net_settings.h"

#include "location.h"

#include <cstdlib>

namespace kmhost {

namespace {
void read_number(const char* key, long least, long& into) {
    const std::string text = setting(key);
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    constexpr long most = 10L * 365 * 86400;
    if (!text.empty() && *end == '\0' && value >= least && value <= most)
        into = value;
}
} // namespace

net_settings read_net_settings() {
    net_settings all;
    const struct {
        const char* key;
        long least;
        long& value;
    } numbers[] = {
        {"net_connect_timeout", 1, all.connect_timeout},
        {"net_stall_timeout", 1, all.stall_timeout},
        {"net_low_speed", 1, all.low_speed},
        {"net_total_timeout", 0, all.total_timeout},
        {"net_reconnects", 0, all.reconnects},
        {"net_redirects", 0, all.redirects},
    };
    for (const auto& one : numbers)
        read_number(one.key, one.least, one.value);
    all.proxy = setting("net_proxy");
    all.ca_file = setting("net_ca_file");
    all.client_cert = setting("net_client_cert");
    all.client_key = setting("net_client_key");
    all.netrc_file = setting("net_netrc_file");
    return all;
}

} // namespace kmhost
