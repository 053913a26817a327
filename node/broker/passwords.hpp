// passwords.hpp - checks passwords against hashes of crypt(3) in a thread of its own, because a good hash takes its
// time and the broker must not wait. The thread starts with the first check. Passwords are wiped after use.
#pragma once

#include <cstdint>
#include <condition_variable>
#include <deque>
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
    void check(std::uint32_t session, const std::string &hash, const std::string &password);
    std::vector<verdict> take();

private:
    struct job
    {
        std::uint32_t session;
        std::string hash;
        std::string password;
    };
    void work();

    int event_ = -1;
    std::thread worker_;
    std::mutex lock_; // of what follows
    std::condition_variable wake_;
    std::deque<job> jobs_;
    std::vector<verdict> verdicts_;
    bool ending_ = false;
};

// True when a password belongs to a hash of crypt(3).
bool password_matches(const std::string &password, const std::string &hash);

} // namespace broker
