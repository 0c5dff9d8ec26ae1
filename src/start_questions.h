// What the start has to ask and to tell once the pages are up.
#pragma once

struct app;

// In this order: the question about missing files, a warning for each NTFS partition that cannot be read, the
// question about missing sectors. What was not taken over from the saved templates is said on their pages.
void ask_start_questions(struct app *app);

// Offers to save the template without `missing_files`, or without `missing_sectors`, and empties the list.
void ask_delete_missing_files(struct app *app);
void ask_delete_missing_sectors(struct app *app);

// One warning for each NTFS partition that neither the system nor this program could mount.
void warn_ntfs(struct app *app);
