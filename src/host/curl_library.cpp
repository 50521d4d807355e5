// curl_library: libcurl, loaded when the first address is opened
// no format
// invariant: either every function is there or none is used
#include "curl_library.h"

#include "lazy_library.h"

namespace kmhost {

namespace {

std::string load(curl_library& all) {
    km::lazy_library from("libcurl.so.4");
    from.find("curl_global_init", all.global_init);
    from.find("curl_easy_init", all.easy_init);
    from.find("curl_easy_setopt", all.easy_setopt);
    from.find("curl_easy_getinfo", all.easy_getinfo);
    from.find("curl_easy_perform", all.easy_perform);
    from.find("curl_easy_pause", all.easy_pause);
    from.find("curl_easy_strerror", all.easy_strerror);
    from.find("curl_easy_cleanup", all.easy_cleanup);
    from.find("curl_multi_init", all.multi_init);
    from.find("curl_multi_add_handle", all.multi_add_handle);
    from.find("curl_multi_remove_handle", all.multi_remove_handle);
    from.find("curl_multi_perform", all.multi_perform);
    from.find("curl_multi_poll", all.multi_poll);
    from.find("curl_multi_wakeup", all.multi_wakeup);
    from.find("curl_multi_info_read", all.multi_info_read);
    from.find("curl_multi_cleanup", all.multi_cleanup);
    from.find("curl_slist_append", all.slist_append);
    from.find("curl_slist_free_all", all.slist_free_all);
    from.find("curl_url", all.url);
    from.find("curl_url_set", all.url_set);
    from.find("curl_url_get", all.url_get);
    from.find("curl_url_cleanup", all.url_cleanup);
    from.find("curl_free", all.free);
    if (from.why().empty() && all.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
        return "it cannot be initialised";
    return from.why();
}

} // namespace

const curl_library* curl_library::get(std::string& why) {
    static curl_library all{};
    static const std::string fault = load(all);
    why = fault;
    return fault.empty() ? &all : nullptr;
}

} // namespace kmhost
