// net_settings: how servers are reached
#pragma once

#include <string>

namespace kmhost {

// From the settings; the keys stand beside.
struct net_settings {
    long connect_timeout = 30; // net_connect_timeout: seconds
    long stall_timeout = 30;   // net_stall_timeout: seconds without enough data
    long low_speed = 1;        // net_low_speed: bytes a second that are enough
    long total_timeout = 0;    // net_total_timeout: seconds for one transfer; 0 any
    long reconnects = 2;       // net_reconnects: tries at once where a transfer was cut
    long redirects = 5;        // net_redirects
    std::string proxy;         // net_proxy: address; "none" for none, "" as the environment says
    std::string ca_file;       // net_ca_file: certificates to trust, PEM
    std::string client_cert;   // net_client_cert, net_client_key: own certificate, PEM
    std::string client_key;
    std::string netrc_file; // net_netrc_file: users and passwords, as curl reads them
};

net_settings read_net_settings();

} // namespace kmhost
