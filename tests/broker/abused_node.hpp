// abused_node.hpp - a broker in the background, and how to see that it serves others all the same.
#pragma once

#include "processes.hpp"

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace test {

struct abused_node : node
{
    void SetUp() override
    {
        node::SetUp();
        start();
    }
    // Another program is served as if nothing had happened.
    void expect_service()
    {
        client server(directory);
        client caller(directory);
        ASSERT_TRUE(server.connected());
        ASSERT_TRUE(caller.connected());
        server.greet();
        caller.greet();
        server.add_name("WITNESS");
        ASSERT_TRUE(server.accept("WITNESS"));
        received granted = caller.allocate("WITNESS");
        ASSERT_EQ(granted.descriptors.size(), 1u);
        send_attach(granted.descriptors[0], "hello");
        received taken = server.next();
        ASSERT_EQ(taken.descriptors.size(), 1u);
        EXPECT_EQ(read_bytes(taken.descriptors[0], 5), "hello");
        close(granted.descriptors[0]);
        close(taken.descriptors[0]);
    }
    std::size_t broker_descriptors() const
    {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto &entry :
             std::filesystem::directory_iterator("/proc/" + std::to_string(broker_pid()) + "/fd"))
        {
            ++count;
        }
        return count;
    }
    // Kilobytes of memory that the broker has, by the name that the system gives them ("VmRSS").
    long broker_memory(const std::string &name) const
    {
        std::ifstream status("/proc/" + std::to_string(broker_pid()) + "/status");
        for (std::string line; std::getline(status, line);)
        {
            if (line.starts_with(name + ":"))
            {
                return std::stol(line.substr(name.size() + 1));
            }
        }
        return 0;
    }
};

} // namespace test
