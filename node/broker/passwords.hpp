// passwords.hpp - checks passwords against hashes of crypt(3) in a thread of its own, because a good hash takes its
// time and the broker must not wait. The thread starts with the first check; where it cannot, checks are made on the
// spot. Users take turns, and so do the processes of each: whoever tries many passwords makes others wait for one check
// of its own only.
#pragma once

#include "broker/secret.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace broker {

class password_checker
{
public:
    struct verdict
    {
        std::uint32_t session;
        bool good;
    };

    password_checker() = default;
    ~password_checker();
    password_checker(const password_checker &) = delete;
    password_checker &operator=(const password_checker &) = delete;

    bool open();                            // false: no descriptor
    int descriptor() const { return event_; } // readable when verdicts are there
    void check(std::uint32_t session, std::uint32_t user, std::int32_t process, const std::string &hash,
               secret password);
    std::vector<verdict> take();

private:
    struct job
    {
        std::uint32_t session;
        std::string hash;
        secret password;
    };
    void work();
    bool next_job(job &next);
    void tell(verdict one);

    int event_ = -1;
    std::thread worker_;
    std::mutex lock_; // of what follows
    std::condition_variable wake_;
    struct turns
    {
        std::map<std::int32_t, std::deque<job>> jobs; // by process; none is empty
        std::int32_t last_process = 0;                // whose turn it was
    };
    std::map<std::uint32_t, turns> users_; // those with jobs
    std::uint32_t last_user_ = 0;
    std::vector<verdict> verdicts_;
    bool ending_ = false;
};

// True when a password belongs to a hash of crypt(3).
bool password_matches(const char *password, const std::string &hash);

} // namespace broker
