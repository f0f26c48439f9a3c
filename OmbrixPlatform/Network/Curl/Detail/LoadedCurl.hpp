#pragma once

// Private: libcurl, loaded by the first session; in place of <curl/curl.h>. The archives are split,
// but `ombrix` and libombrix.so hold client and formatters both: linked, it and the thirty
// libraries that it needs would take most of the time that `ombrix format` needs to start.

#include <curl/curl.h>

#define OMBRIX_CURL_FUNCTIONS(use)                                                           \
  use(easy_cleanup) use(easy_getinfo) use(easy_init) use(easy_pause) use(easy_setopt)        \
      use(easy_strerror) use(global_init) use(multi_add_handle) use(multi_cleanup)           \
          use(multi_info_read) use(multi_init) use(multi_remove_handle) use(multi_setopt)    \
              use(multi_socket_action) use(multi_timeout) use(share_cleanup) use(share_init) \
                  use(share_setopt) use(slist_append) use(slist_free_all) use(url)           \
                      use(url_cleanup) use(url_set)

namespace ombrix::platform::detail {

/// The functions of libcurl that are in use, by their names without "curl_".
struct LoadedCurl {
#define OMBRIX_CURL_MEMBER(name) decltype(&::curl_##name) name;
  OMBRIX_CURL_FUNCTIONS(OMBRIX_CURL_MEMBER)
#undef OMBRIX_CURL_MEMBER
};

/// Stops the program where libcurl is not installed. Any thread.
const LoadedCurl& loadedCurl() noexcept;

}  // namespace ombrix::platform::detail

#undef curl_easy_getinfo  // libcurl's own, which only pass their arguments on
#undef curl_easy_setopt
#undef curl_multi_setopt
#undef curl_share_setopt
#define curl_easy_cleanup ombrix::platform::detail::loadedCurl().easy_cleanup
#define curl_easy_getinfo ombrix::platform::detail::loadedCurl().easy_getinfo
#define curl_easy_init ombrix::platform::detail::loadedCurl().easy_init
#define curl_easy_pause ombrix::platform::detail::loadedCurl().easy_pause
#define curl_easy_setopt ombrix::platform::detail::loadedCurl().easy_setopt
#define curl_easy_strerror ombrix::platform::detail::loadedCurl().easy_strerror
#define curl_global_init ombrix::platform::detail::loadedCurl().global_init
#define curl_multi_add_handle ombrix::platform::detail::loadedCurl().multi_add_handle
#define curl_multi_cleanup ombrix::platform::detail::loadedCurl().multi_cleanup
#define curl_multi_info_read ombrix::platform::detail::loadedCurl().multi_info_read
#define curl_multi_init ombrix::platform::detail::loadedCurl().multi_init
#define curl_multi_remove_handle ombrix::platform::detail::loadedCurl().multi_remove_handle
#define curl_multi_setopt ombrix::platform::detail::loadedCurl().multi_setopt
#define curl_multi_socket_action ombrix::platform::detail::loadedCurl().multi_socket_action
#define curl_multi_timeout ombrix::platform::detail::loadedCurl().multi_timeout
#define curl_share_cleanup ombrix::platform::detail::loadedCurl().share_cleanup
#define curl_share_init ombrix::platform::detail::loadedCurl().share_init
#define curl_share_setopt ombrix::platform::detail::loadedCurl().share_setopt
#define curl_slist_append ombrix::platform::detail::loadedCurl().slist_append
#define curl_slist_free_all ombrix::platform::detail::loadedCurl().slist_free_all
#define curl_url ombrix::platform::detail::loadedCurl().url
#define curl_url_cleanup ombrix::platform::detail::loadedCurl().url_cleanup
#define curl_url_set ombrix::platform::detail::loadedCurl().url_set
