// The default file selection: the files that make up this tool and the board's own software.
#pragma once

#include <string>
#include <vector>

// The entries of the fixed table, in its order, that exist on a recognised file system and are not reached
// through a linked directory.
[[nodiscard]] std::vector<std::string> generate_defaults();
