// vell ls: folders in natural order, with image sequences folded.
//
// With --json every line is one object:
//
//     {"type":"file","path":"notes.txt","size":812,"modified":"2024-03-07T17:05:00Z"}
//     {"type":"sequence","path":"shot.[1001-1402,1404-1418].dpx","prefix":"shot.","suffix":".dpx","padding":1,
//      "ranges":[[1001,1402],[1404,1418]],"files":417,"missing":1,"size":3468820480,"modified":"2024-03-07T17:05:00Z"}
//
// "type" is file, folder, link (one that leads nowhere), other or sequence; "link":true marks a name that is a symbolic
// link. "path" begins below the folder that was listed; of a file given as the path it is what was given. A sequence
// has the size of all its files and the time of the newest. A text whose bytes are not UTF-8 has U+FFFD in their place,
// and all its bytes stand in "path_hex", "prefix_hex" or "suffix_hex" beside it.
#pragma once

#include "commands/ls_folder.h"
#include "ui/failure.h"

namespace tool {

inline constexpr int k_exit_unread_path = 3;    ///< the path cannot be listed
inline constexpr int k_exit_unread_folder = 4;  ///< a folder below it cannot be read
inline constexpr int k_exit_no_match = 5;       ///< nothing matches the pattern

/// Prints the listing. @return the exit code.
int print_listing(const LsOptions& options);

}  // namespace tool
