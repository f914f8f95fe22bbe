// The declarations of sysdir(3) that the lookups use, for a compiler that has no macOS.
#pragma once

#include <cstdint>

extern "C" {

enum sysdir_search_path_directory_t : std::uint32_t {};
enum sysdir_search_path_domain_mask_t : std::uint32_t {};
using sysdir_search_path_enumeration_state = unsigned int;

sysdir_search_path_enumeration_state sysdir_start_search_path_enumeration(sysdir_search_path_directory_t directory,
                                                                          sysdir_search_path_domain_mask_t domains);
sysdir_search_path_enumeration_state sysdir_get_next_search_path_enumeration(sysdir_search_path_enumeration_state state,
                                                                             char *path);
}
