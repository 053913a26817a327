// tables_test.cpp - handle tables.
#include "node_client.h"

#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace {

class tables : public testing::Test
{
protected:
    void SetUp() override
    {
        vtm_table_init(&table, 0);
        ASSERT_NE(table, 0u);
    }
    void TearDown() override
    {
        vtm_table_terminate(&table);
        EXPECT_EQ(table, 0u);
    }

    std::vector<u32> walk() const
    {
        std::vector<u32> found;
        for (u32 handle = vtm_get_next_used(table, 0); handle != 0; handle = vtm_get_next_used(table, handle))
        {
            found.push_back(handle);
        }
        return found;
    }

    u32 table = 0;
    int records[20000];
};

TEST_F(tables, an_entry_is_found_by_its_handle)
{
    u32 one = vtm_get_free_entry(table, &records[1]);
    u32 two = vtm_get_free_entry(table, &records[2]);
    EXPECT_NE(one, 0u);
    EXPECT_NE(one, two);
    EXPECT_EQ(vtm_get_pointer(table, one), &records[1]);
    EXPECT_EQ(vtm_get_pointer(table, two), &records[2]);
}

TEST_F(tables, a_released_handle_finds_nothing)
{
    u32 one = vtm_get_free_entry(table, &records[1]);
    vtm_release_entry(table, one);
    EXPECT_EQ(vtm_get_pointer(table, one), nullptr);
    vtm_release_entry(table, one); // a second time: nothing happens
    u32 two = vtm_get_free_entry(table, &records[2]);
    vtm_release_entry(table, one);
    EXPECT_EQ(vtm_get_pointer(table, two), &records[2]);
}

TEST_F(tables, nothing_is_found_by_what_was_never_a_handle)
{
    vtm_get_free_entry(table, &records[1]);
    for (u32 wrong : {0u, 2u, 1024u, 0x000FFFFFu, 0x00100001u, 0x80000001u, 0xFFFFFFFFu})
    {
        EXPECT_EQ(vtm_get_pointer(table, wrong), nullptr) << wrong;
        EXPECT_EQ(vtm_get_pointer(0, wrong), nullptr);
        EXPECT_EQ(vtm_get_pointer(wrong ^ 0x5000, wrong), nullptr);
    }
}

TEST_F(tables, a_released_handle_is_not_given_out_again_soon)
{
    // One entry used and released over and over, the way a program with one conversation at a time does it.
    std::set<u32> seen;
    for (int i = 0; i < 300000; i++)
    {
        u32 handle = vtm_get_free_entry(table, &records[0]);
        ASSERT_TRUE(seen.insert(handle).second) << "after " << i;
        vtm_release_entry(table, handle);
    }
}

TEST_F(tables, the_walk_finds_every_used_entry_once_and_in_order)
{
    std::vector<u32> handles;
    for (int &record : records)
    {
        handles.push_back(vtm_get_free_entry(table, &record));
        ASSERT_NE(handles.back(), 0u);
    }
    EXPECT_EQ(walk(), handles);
    std::vector<u32> left;
    for (std::size_t i = 0; i < handles.size(); i++)
    {
        // Gaps of every kind: single entries, whole words, whole groups of words.
        if (i % 7 == 0 || (i > 3000 && i < 9000))
        {
            vtm_release_entry(table, handles[i]);
        }
        else
        {
            left.push_back(handles[i]);
        }
    }
    EXPECT_EQ(walk(), left);
}

TEST_F(tables, the_walk_goes_on_from_an_entry_that_was_released)
{
    std::vector<u32> handles;
    for (int i = 0; i < 100; i++)
    {
        handles.push_back(vtm_get_free_entry(table, &records[i]));
    }
    u32 found = 0;
    for (u32 handle = vtm_get_next_used(table, 0); handle != 0; handle = vtm_get_next_used(table, handle))
    {
        EXPECT_EQ(handle, handles[found]);
        vtm_release_entry(table, handle);
        found++;
    }
    EXPECT_EQ(found, 100u);
    EXPECT_EQ(vtm_get_next_used(table, 0), 0u);
}

TEST_F(tables, no_table_has_no_entries)
{
    EXPECT_EQ(vtm_get_next_used(0, 0), 0u);
    EXPECT_EQ(vtm_get_next_used(0, 77), 0u);
    EXPECT_EQ(vtm_get_free_entry(0, &records[0]), 0u);
    vtm_release_entry(0, 1);
}

TEST_F(tables, a_terminated_table_is_not_reached_by_its_word)
{
    u32 other;
    vtm_table_init(&other, 0);
    u32 word = other;
    u32 handle = vtm_get_free_entry(other, &records[0]);
    vtm_table_terminate(&other);
    EXPECT_EQ(vtm_get_pointer(word, handle), nullptr);
    EXPECT_EQ(vtm_get_next_used(word, 0), 0u);
    u32 next;
    vtm_table_init(&next, 0);
    EXPECT_NE(next, word);
    EXPECT_EQ(vtm_get_pointer(word, handle), nullptr);
    vtm_table_terminate(&next);
}

TEST_F(tables, two_tables_do_not_mix)
{
    u32 other;
    vtm_table_init(&other, 0);
    u32 mine = vtm_get_free_entry(table, &records[1]);
    u32 theirs = vtm_get_free_entry(other, &records[2]);
    EXPECT_EQ(vtm_get_pointer(table, mine), &records[1]);
    EXPECT_EQ(vtm_get_pointer(other, theirs), &records[2]);
    vtm_release_entry(other, theirs);
    EXPECT_EQ(vtm_get_pointer(table, mine), &records[1]);
    vtm_table_terminate(&other);
}

TEST(memory, is_given_and_taken_back)
{
    void *memory = nba_mm_alloc(492, 770, nba_blank_name);
    ASSERT_NE(memory, nullptr);
    memset(memory, 0x5A, 492);
    nba_mm_free(memory);
    EXPECT_EQ(std::string(nba_blank_name, 8), "        ");
}

} // namespace
