// What template_pair.cpp asks of the recovery before it replaces anything.
#pragma once

#include "common/template_pair_files.h"

// Whether both files are there, agree with each other and hold exactly the records that they claim. `error`
// becomes the errno of a call that failed although something may be there.
[[nodiscard]] bool is_whole(int directory, list_kind kind, const template_files::file_names &names,
                            int &error);

// Puts right what an interrupted save has left beside the pair. 0, or the reason why something still lies
// there. `remains` becomes true when nothing of it is whole.
[[nodiscard]] int recover(int directory, list_kind kind, bool &remains);
