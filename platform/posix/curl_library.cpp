#include "platform/curl_library.h"

#include "platform/first_use.h"

#include <dlfcn.h>

namespace vell {
namespace {

template <class Function>
bool find(void* library, const char* name, Function*& function) noexcept {
    function = reinterpret_cast<Function*>(dlsym(library, name));
    return function != nullptr;
}

bool find_all() noexcept {
    void* library = dlopen(curl_library_name, RTLD_NOW | RTLD_LOCAL);  // stays for good
    if (library == nullptr) return false;
    return find(library, "curl_easy_cleanup", curl.easy_cleanup) &&
           find(library, "curl_easy_getinfo", curl.easy_getinfo) && find(library, "curl_easy_init", curl.easy_init) &&
           find(library, "curl_easy_reset", curl.easy_reset) && find(library, "curl_easy_setopt", curl.easy_setopt) &&
           find(library, "curl_easy_strerror", curl.easy_strerror) && find(library, "curl_free", curl.free) &&
           find(library, "curl_global_init", curl.global_init) &&
           find(library, "curl_multi_add_handle", curl.multi_add_handle) &&
           find(library, "curl_multi_cleanup", curl.multi_cleanup) &&
           find(library, "curl_multi_info_read", curl.multi_info_read) &&
           find(library, "curl_multi_init", curl.multi_init) &&
           find(library, "curl_multi_perform", curl.multi_perform) &&
           find(library, "curl_multi_poll", curl.multi_poll) &&
           find(library, "curl_multi_remove_handle", curl.multi_remove_handle) &&
           find(library, "curl_multi_setopt", curl.multi_setopt) &&
           find(library, "curl_multi_strerror", curl.multi_strerror) &&
           find(library, "curl_slist_append", curl.slist_append) &&
           find(library, "curl_slist_free_all", curl.slist_free_all) && find(library, "curl_url", curl.url) &&
           find(library, "curl_url_cleanup", curl.url_cleanup) && find(library, "curl_url_dup", curl.url_dup) &&
           find(library, "curl_url_get", curl.url_get) && find(library, "curl_url_set", curl.url_set) &&
           find(library, "curl_url_strerror", curl.url_strerror);
}

}  // namespace

constinit CurlCalls curl;

bool load_curl() noexcept {
    static constinit FirstUse first_call;
    static constinit bool is_loaded = false;
    first_call.run([] { is_loaded = find_all(); });
    return is_loaded;
}

}  // namespace vell
