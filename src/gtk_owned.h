// Owners for what GTK hands us, as common/owned.h has them for the C library.
#pragma once

#include <gtk/gtk.h>
#include <memory>

struct object_unrefer {
    void operator()(void *object) const { g_object_unref(object); }
};
template<typename object> using owned_object = std::unique_ptr<object, object_unrefer>;

struct path_freer {
    void operator()(GtkTreePath *path) const { gtk_tree_path_free(path); }
};
using owned_path = std::unique_ptr<GtkTreePath, path_freer>;
