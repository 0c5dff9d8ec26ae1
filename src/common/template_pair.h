// Writing a template so that the firmware always finds a whole one: both files are written beside the pair in
// use, brought to the disk, and only then take its place. Whatever fails on the way, the pair in use stays as
// it is. What lies beside it meanwhile has names of our own (.gtk-tarnel-bootfile.nam.new and the like);
// nothing else in the directory is touched.
#pragma once

#include "common/file_format.h"
#include "common/owned.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// A pair being written. Dropping it before it has replaced the pair in use removes what was written.
struct template_pair {
    template_pair(std::string directory_path, list_kind list, owned_fd directory);
    template_pair(const template_pair &) = delete;
    template_pair &operator=(const template_pair &) = delete;
    ~template_pair();

    std::string path; // template directory
    list_kind kind;
    owned_fd directory;
    owned_file nam, chk;       // null once they are complete
    std::uint32_t claimed = 0; // record count in the headers
    std::uint32_t records = 0; // records written so far
    int error = 0;             // errno of the first failure: the pair can no longer replace anything
    bool interrupted = false;  // `error` is that of putting an earlier save right: see interrupted_save
    bool remains = false;      // nothing of an earlier save is whole: it lies there until this pair is in use
    bool leave_beside = false; // what lies beside the pair in use is left to the recovery
};

// Creates both new files. When one of them cannot be created, which is traced, the pair's `error` says why.
[[nodiscard]] std::unique_ptr<template_pair> open_template_pair(const std::string &directory, list_kind kind);

// Writes both headers. The count may be a guess: replace_template puts in the records really written.
// `directory_path` as for template_name_path.
[[nodiscard]] bool write_template_headers(template_pair &pair, const std::string &directory_path,
                                          std::uint32_t count);

// Adds one record, of the list's record size, and its empty check value. False once any write failed.
[[nodiscard]] bool write_template_record(template_pair &pair, std::span<const std::uint8_t> record);

// Completes the pair and lets it take the place of the one in use. False when anything failed, on disk or
// before: the pair in use is then the old one. The pair is of no more use but for its `error`.
[[nodiscard]] bool replace_template(template_pair &pair);

// Clears up after saves that a crash or power cut interrupted, for both lists. To be called at start, before
// a template is read. Afterwards each pair is the old one or the new one, and nothing of ours lies beside it.
// What cannot be put right stays as it is, for the next start.
void recover_templates(const std::string &directory);

// The names, sorted and without the directory, of what lies beside the pair because an interrupted save could
// not be put right: no save is possible while it lies there. Nothing when all is in order, or nothing of it
// is whole; not to be called while a pair of this kind is open.
[[nodiscard]] std::vector<std::string> interrupted_save(const std::string &directory, list_kind kind);
