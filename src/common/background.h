// Work that is done beside the caller's, in a thread of its own.
#pragma once

#include "trace_log.h"

#include <functional>
#include <pthread.h>
#include <string>
#include <utility>

// The work must touch nothing that anybody else touches before `finish`. Where there is no thread to be had
// it is done by `finish`. What the work traces is kept until then, so that the trace tells of one thing after
// the other.
class background {
public:
    explicit background(std::function<void()> work)
        : work_(std::move(work)), has_thread_(pthread_create(&thread_, nullptr, run, this) == 0)
    {
    }
    background(const background &) = delete;
    background &operator=(const background &) = delete;
    ~background() { join(); }

    // Whether it is done, or being done, before `finish` is called.
    bool has_begun() const { return has_thread_; }

    // Returns when the work is done. To be called once.
    void finish()
    {
        if (has_thread_)
            join();
        else
            work_();
    }

private:
    static void *run(void *self)
    {
        auto *job = static_cast<background *>(self);
        keep_trace(&job->traced_);
        job->work_();
        return nullptr;
    }

    void join()
    {
        if (!std::exchange(has_thread_, false))
            return;
        pthread_join(thread_, nullptr);
        trace_kept(traced_);
    }

    const std::function<void()> work_;
    std::string traced_;
    pthread_t thread_{};
    bool has_thread_;
};
