#include "platform/curl_library.h"

namespace vell {

const char* const curl_library_name = "libcurl.so.4";

}  // namespace vell
