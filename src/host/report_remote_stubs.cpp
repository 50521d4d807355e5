// report_remote_stubs: channels that are not there yet
// no format
// invariant: what is not there is not set up
#include "report_channels.h"

namespace kmhost {

delivery deliver_to_mail(const report_fields&, const report_settings&, std::string&) {
    return delivery::not_set_up;
}

delivery deliver_to_event(const report_fields&, const report_settings&, std::string&) {
    return delivery::not_set_up;
}

} // namespace kmhost
