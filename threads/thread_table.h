// What the thread table tells the rest of this folder.
#pragma once

namespace vell {

/// Makes `name` what mp_get_thread_name answers on the calling thread.
void set_own_thread_name(const char* name) noexcept;

}  // namespace vell
