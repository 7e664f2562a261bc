// libcurl, loaded at the first request. It brings some thirty libraries along, and most hosts never ask for a URL:
// linked with it, every start of every one of them would take milliseconds longer.
#pragma once

#include <curl/curl.h>

namespace vell {

/// Its functions, by their names without "curl_".
struct CurlCalls {
    decltype(&curl_easy_cleanup) easy_cleanup = nullptr;
    decltype(&curl_easy_getinfo) easy_getinfo = nullptr;
    decltype(&curl_easy_init) easy_init = nullptr;
    decltype(&curl_easy_reset) easy_reset = nullptr;
    decltype(&curl_easy_setopt) easy_setopt = nullptr;
    decltype(&curl_easy_strerror) easy_strerror = nullptr;
    decltype(&curl_free) free = nullptr;
    decltype(&curl_global_init) global_init = nullptr;
    decltype(&curl_multi_add_handle) multi_add_handle = nullptr;
    decltype(&curl_multi_cleanup) multi_cleanup = nullptr;
    decltype(&curl_multi_info_read) multi_info_read = nullptr;
    decltype(&curl_multi_init) multi_init = nullptr;
    decltype(&curl_multi_perform) multi_perform = nullptr;
    decltype(&curl_multi_poll) multi_poll = nullptr;
    decltype(&curl_multi_remove_handle) multi_remove_handle = nullptr;
    decltype(&curl_multi_setopt) multi_setopt = nullptr;
    decltype(&curl_multi_strerror) multi_strerror = nullptr;
    decltype(&curl_slist_append) slist_append = nullptr;
    decltype(&curl_slist_free_all) slist_free_all = nullptr;
    decltype(&curl_url) url = nullptr;
    decltype(&curl_url_cleanup) url_cleanup = nullptr;
    decltype(&curl_url_dup) url_dup = nullptr;
    decltype(&curl_url_get) url_get = nullptr;
    decltype(&curl_url_set) url_set = nullptr;
    decltype(&curl_url_strerror) url_strerror = nullptr;
};

/// What the system's loader knows the library by; each system has its file.
extern const char* const curl_library_name;

/// Null until load_curl was true.
extern CurlCalls curl;

/// Any thread. False when libcurl is not installed, or too old.
[[nodiscard]] bool load_curl() noexcept;

}  // namespace vell
