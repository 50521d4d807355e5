// curl_library: libcurl, loaded when the first address is opened
#pragma once

#include <curl/curl.h>
#include <string>

namespace kmhost {

struct curl_library {
    decltype(&::curl_global_init) global_init;
    decltype(&::curl_easy_init) easy_init;
    decltype(&::curl_easy_setopt) easy_setopt;
    decltype(&::curl_easy_getinfo) easy_getinfo;
    decltype(&::curl_easy_perform) easy_perform;
    decltype(&::curl_easy_pause) easy_pause;
    decltype(&::curl_easy_strerror) easy_strerror;
    decltype(&::curl_easy_cleanup) easy_cleanup;
    decltype(&::curl_multi_init) multi_init;
    decltype(&::curl_multi_add_handle) multi_add_handle;
    decltype(&::curl_multi_remove_handle) multi_remove_handle;
    decltype(&::curl_multi_perform) multi_perform;
    decltype(&::curl_multi_poll) multi_poll;
    decltype(&::curl_multi_wakeup) multi_wakeup;
    decltype(&::curl_multi_info_read) multi_info_read;
    decltype(&::curl_multi_cleanup) multi_cleanup;
    decltype(&::curl_slist_append) slist_append;
    decltype(&::curl_slist_free_all) slist_free_all;
    decltype(&::curl_url) url;
    decltype(&::curl_url_set) url_set;
    decltype(&::curl_url_get) url_get;
    decltype(&::curl_url_cleanup) url_cleanup;
    decltype(&::curl_free) free;

    // The one of this process. Null: `why` says what is missing.
    static const curl_library* get(std::string& why);
};

} // namespace kmhost
