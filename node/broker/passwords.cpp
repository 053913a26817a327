// passwords.cpp - the thread that checks passwords.
#include "broker/passwords.hpp"

#include "broker/names.hpp"

#include <crypt.h>
#include <memory>
#include <new>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace broker {

bool password_matches(const char *password, const std::string &hash)
{
    auto scratch = std::make_unique<crypt_data>();
    const char *made = crypt_r(password, hash.c_str(), scratch.get());
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

void password_checker::tell(verdict one)
{
    verdicts_.push_back(one);
    std::uint64_t count = 1;
    [[maybe_unused]] ssize_t written = write(event_, &count, sizeof count);
}

void password_checker::check(std::uint32_t session, std::uint32_t user, std::int32_t process, const std::string &hash,
                             secret password)
{
    std::lock_guard guard(lock_);
    if (!worker_.joinable())
    {
        try
        {
            worker_ = std::thread([this] { work(); });
        }
        catch (const std::system_error &) // the limit of threads is reached
        {
            tell({session, password_matches(password.text(), hash)});
            return;
        }
    }
    users_[user].jobs[process].push_back({session, hash, std::move(password)});
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

namespace {

// The entry whose turn comes after that of a key: the next one, and after the last the first.
template <class Map, class Key>
auto next_turn(Map &all, const Key &last)
{
    auto next = all.upper_bound(last);
    return next == all.end() ? all.begin() : next;
}

} // namespace

// Takes the oldest job of the process whose turn it is, of the user whose turn it is. False: there is none.
bool password_checker::next_job(job &next)
{
    if (users_.empty())
    {
        return false;
    }
    auto user = next_turn(users_, last_user_);
    turns &own = user->second;
    auto process = next_turn(own.jobs, own.last_process);
    last_user_ = user->first;
    own.last_process = process->first;
    next = std::move(process->second.front());
    process->second.pop_front();
    if (process->second.empty())
    {
        own.jobs.erase(process);
    }
    if (own.jobs.empty())
    {
        users_.erase(user);
    }
    return true;
}

void password_checker::work()
{
    std::unique_lock guard(lock_);
    for (;;)
    {
        job next{};
        wake_.wait(guard, [&] { return ending_ || next_job(next); });
        if (ending_)
        {
            return;
        }
        guard.unlock();
        bool good = false;
        try
        {
            good = password_matches(next.password.text(), next.hash);
        }
        catch (const std::bad_alloc &) // what cannot be checked is not valid
        {
        }
        guard.lock();
        tell({next.session, good});
    }
}

} // namespace broker
