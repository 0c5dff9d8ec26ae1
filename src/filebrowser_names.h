// The rows of the file tree by their names.
#pragma once

#include "common/name_hash.h"
#include "file_store.h"

#include <string>
#include <unordered_map>
#include <vector>

// The first child with this name among those already read; null when there is none. On FAT, where no other is
// equal, the first whose name is equal without regard to case.
[[nodiscard]] file_node *find_child(const file_node &row, const std::string &name);

// The same for many names, which costs least when they come in the order of the rows. The rows of the
// directories on the path last searched are remembered by their names where their order does not lead to
// them. For the time in which no row goes away.
class row_names {
public:
    [[nodiscard]] file_node *find(const file_node &row, const std::string &name);

private:
    using by_name = std::unordered_map<std::string, file_node *, name_hash>;
    struct children_by_name {
        const file_node *row = nullptr;
        std::size_t count = 0;
        by_name exact, folded;
    };
    [[nodiscard]] file_node *find_by_order(const file_node &row, const std::string &name) const;
    [[nodiscard]] const children_by_name &children_of(const file_node &row);

    std::vector<children_by_name> levels_; // of the tree
    const file_node *last_ = nullptr;      // what was found
};
