#pragma once
// The volumes that hold files: where they are mounted, what is free on them, sizes as texts for people.
//
// Paths are UTF-8; symbolic links are followed. Any thread may call everything here.

#include "export.h"

/// Finds the mount point of the volume that holds `path`. A path that does not exist is answered for the nearest
/// folder above it that does. Of the path at most 1023 bytes are looked at.
///
/// @param out     receives the folder, cut to `length` bytes with the terminator.
/// @param length  bytes of `out`; its last byte is always set to 0.
/// @return  false for a null argument or a length of 0, and for a missing relative path with nothing existing above it.
VELL_API bool vl_get_volumepath(const char* path, char* out, unsigned long long length) noexcept;

/// Bytes that the user may still write to the volume that holds `path`.
/// @return  all ones when `path` does not exist (nothing above it is looked at) or the system does not tell.
[[nodiscard]] VELL_API unsigned long long vl_freespace(const char* path) noexcept;

/// Writes a size as a short text: "512 Kb" up to 1 MiB, "700 Mb" up to 1 GiB, "1.5 Gb" up to 1 TiB, then "2.00 Tb".
/// The units are powers of 1024; halves are rounded to the even neighbour; the point is a "." in every locale.
/// @param out  32 bytes.  @return  true; false for a null `out`.
VELL_API bool vl_byte_size_designation(unsigned long long bytes, char* out) noexcept;

// Questions with one answer on the systems that this library runs on.

/// 0; the outputs are not written.
VELL_API int vl_get_volumeinfo(const char* path, unsigned int* first, unsigned int* second) noexcept;
/// True.
[[nodiscard]] VELL_API bool vl_localpath(const char* path) noexcept;
/// Does nothing.
VELL_API void vl_set_systemdisk(int disk) noexcept;
/// 0.
[[nodiscard]] VELL_API int cfg_sys_internals() noexcept;
/// False.
[[nodiscard]] VELL_API bool is_removable_drive(const char* path) noexcept;
/// False.
[[nodiscard]] VELL_API bool is_remote_network_drive(const char* path) noexcept;
