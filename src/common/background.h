// Work that is done beside the caller's, in a thread of its own.
#pragma once

#include "trace_log.h"

#include <functional>
#include <pthread.h>
#include <utility>

// The work must touch nothing that anybody else touches before `finish`. Where there is no thread to be had,
// and while a trace is written, which tells of one thing after the other, it is done by `finish`.
class background {
public:
    explicit background(std::function<void()> work)
        : work_(std::move(work)),
          has_thread_(!trace_enabled && pthread_create(&thread_, nullptr, run, this) == 0)
    {
    }
    background(const background &) = delete;
    background &operator=(const background &) = delete;
    ~background()
    {
        if (has_thread_)
            pthread_join(thread_, nullptr);
    }

    // Whether it is done, or being done, before `finish` is called.
    bool has_begun() const { return has_thread_; }

    // Returns when the work is done. To be called once.
    void finish()
    {
        if (std::exchange(has_thread_, false))
            pthread_join(thread_, nullptr);
        else
            work_();
    }

private:
    static void *run(void *self) { return static_cast<background *>(self)->work_(), nullptr; }

    const std::function<void()> work_;
    pthread_t thread_{};
    bool has_thread_;
};
