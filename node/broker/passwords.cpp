// passwords.cpp - the thread that checks passwords.
#include "broker/passwords.hpp"

#include <crypt.h>
#include <csignal>
#include <memory>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace broker {

bool password_matches(const std::string &password, const std::string &hash)
{
    auto scratch = std::make_unique<crypt_data>();
    const char *made = crypt_r(password.c_str(), hash.c_str(), scratch.get());
    // A failure gives a text beginning with '*', which no hash has. All characters are compared whatever they are.
    bool good = made != nullptr && made[0] != '*' && hash.size() == strlen(made);
    unsigned char difference = 0;
    for (std::size_t i = 0; good && i < hash.size(); ++i)
    {
        difference = static_cast<unsigned char>(difference | (made[i] ^ hash[i]));
    }
    explicit_bzero(scratch.get(), sizeof *scratch);
    return good && difference == 0;
}

password_checker::~password_checker()
{
    if (worker_.joinable())
    {
        {
            std::lock_guard guard(lock_);
            ending_ = true;
        }
        wake_.notify_one();
        worker_.join();
    }
    if (event_ >= 0)
    {
        close(event_);
    }
}

bool password_checker::open()
{
    event_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return event_ >= 0;
}

void password_checker::check(std::uint32_t session, const std::string &hash, const std::string &password)
{
    std::lock_guard guard(lock_);
    if (!worker_.joinable())
    {
        worker_ = std::thread([this] { work(); });
    }
    jobs_.push_back({session, hash, password});
    wake_.notify_one();
}

std::vector<password_checker::verdict> password_checker::take()
{
    std::uint64_t count;
    while (read(event_, &count, sizeof count) > 0)
    {
    }
    std::lock_guard guard(lock_);
    std::vector<verdict> taken;
    taken.swap(verdicts_);
    return taken;
}

void password_checker::work()
{
    std::unique_lock guard(lock_);
    for (;;)
    {
        wake_.wait(guard, [this] { return ending_ || !jobs_.empty(); });
        if (ending_)
        {
            return;
        }
        job next = std::move(jobs_.front());
        jobs_.pop_front();
        guard.unlock();
        bool good = password_matches(next.password, next.hash);
        explicit_bzero(next.password.data(), next.password.size());
        guard.lock();
        verdicts_.push_back({next.session, good});
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = write(event_, &one, sizeof one);
    }
}

} // namespace broker
