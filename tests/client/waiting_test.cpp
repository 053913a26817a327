// waiting_test.cpp - the lock and the wait objects, without a broker.
#include "node_client.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace std::chrono;

namespace {

class waiting : public testing::Test
{
protected:
    void SetUp() override
    {
        token = vpm_lock();
        object = vpm_allocate_wait_object();
        ASSERT_NE(object, 0u);
    }
    void TearDown() override
    {
        vpm_release_wait_object(object);
        vpm_unlock(token);
    }

    u16 token = 0;
    u32 object = 0;
};

TEST(lock, keeps_threads_apart)
{
    int shared = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
    {
        threads.emplace_back([&] {
            for (int n = 0; n < 20000; n++)
            {
                u16 token = vpm_lock();
                shared = shared + 1;
                vpm_unlock(token);
            }
        });
    }
    for (std::thread &thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(shared, 80000);
}

TEST_F(waiting, a_wake_up_that_nobody_slept_on_is_kept)
{
    vpm_wakeup(object);
    EXPECT_EQ(vpm_sleep(object, -1), 0);
}

TEST_F(waiting, a_kept_wake_up_serves_one_sleep)
{
    vpm_wakeup(object);
    vpm_wakeup(object);
    EXPECT_EQ(vpm_sleep(object, -1), 0);
    EXPECT_NE(vpm_sleep(object, 20), 0);
}

TEST_F(waiting, without_a_wake_up_the_time_passes)
{
    auto before = steady_clock::now();
    EXPECT_NE(vpm_sleep(object, 30), 0);
    EXPECT_GE(steady_clock::now() - before, 30ms);
    EXPECT_NE(vpm_sleep(object, 0), 0);
}

TEST_F(waiting, a_sleeper_gives_the_lock_up_and_is_woken)
{
    std::thread other([&] {
        u16 mine = vpm_lock(); // can be had only while the sleeper has given it up
        vpm_wakeup(object);
        vpm_unlock(mine);
    });
    EXPECT_EQ(vpm_sleep(object, -1), 0);
    other.join();
}

TEST_F(waiting, one_wake_up_wakes_every_sleeper)
{
    std::atomic<int> asleep{0};
    std::atomic<int> woken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 40; i++)
    {
        threads.emplace_back([&] {
            u16 mine = vpm_lock();
            asleep++;
            woken += vpm_sleep(object, -1) == 0 ? 1 : 0;
            vpm_unlock(mine);
        });
    }
    vpm_unlock(token);
    while (asleep != 40)
    {
        std::this_thread::yield();
    }
    token = vpm_lock(); // all 40 have counted themselves and given the lock up: they sleep
    vpm_wakeup(object);
    vpm_unlock(token);
    for (std::thread &thread : threads)
    {
        thread.join();
    }
    token = vpm_lock();
    EXPECT_EQ(woken, 40);
    EXPECT_NE(vpm_sleep(object, 0), 0); // nothing was kept beside
}

TEST_F(waiting, objects_do_not_mix)
{
    u32 other = vpm_allocate_wait_object();
    vpm_wakeup(other);
    EXPECT_NE(vpm_sleep(object, 10), 0);
    EXPECT_EQ(vpm_sleep(other, 10), 0);
    vpm_release_wait_object(other);
}

TEST_F(waiting, a_released_object_wakes_nobody_and_sleeping_on_it_fails)
{
    u32 other = vpm_allocate_wait_object();
    vpm_release_wait_object(other);
    vpm_wakeup(other);
    EXPECT_NE(vpm_sleep(other, -1), 0);
    EXPECT_NE(vpm_sleep(0, -1), 0);
    EXPECT_NE(vpm_sleep(0xFFFFFFFF, -1), 0);
}

TEST_F(waiting, a_sleeper_does_not_hang_when_its_object_is_released)
{
    u32 other = vpm_allocate_wait_object();
    std::thread releaser([&] {
        u16 mine = vpm_lock();
        vpm_release_wait_object(other);
        vpm_unlock(mine);
    });
    EXPECT_NE(vpm_sleep(other, -1), 0);
    releaser.join();
}

TEST_F(waiting, a_signal_is_no_wake_up)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    pthread_t sleeper = pthread_self();
    std::atomic<bool> done{false};
    std::thread signaller([&] {
        while (!done)
        {
            pthread_kill(sleeper, SIGUSR1);
            std::this_thread::sleep_for(2ms);
        }
    });
    auto before = steady_clock::now();
    EXPECT_NE(vpm_sleep(object, 50), 0);
    EXPECT_GE(steady_clock::now() - before, 50ms);
    done = true;
    signaller.join();
}

} // namespace
