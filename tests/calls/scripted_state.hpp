/* scripted_state.hpp - what the sources of the scripted node share among themselves; tests use scripted_node.hpp. */
#ifndef TESTS_CALLS_SCRIPTED_STATE_HPP
#define TESTS_CALLS_SCRIPTED_STATE_HPP

#include "private.hpp"
#include "scripted_node.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace scripted
{

/* What the test has scripted, by opcode: one answer each for the next verbs, then the standing one. */
extern std::map<u16, std::deque<Answer>> queued;
extern std::map<u16, Answer> standing;

/* How many of each the node has given out: its identifiers are made from them. */
extern u32 tps_started;
extern u32 conversations_made;
extern u32 tables_made;
extern u32 wait_objects_made;

/* Memory after its release, kept until the end of the test: a late write to it is noticed. */
extern std::map<void *, Bytes> freed;

extern unsigned char control_block[PTRC_SIZE];
extern bool trace_was_on;

/* Every block stands between two guard zones. Fresh memory and released memory have contents of their own. */
constexpr size_t guard_size = 16;
constexpr u8 guard_byte = 0xC3;
constexpr u8 fresh_byte = 0xA5;
constexpr u8 dead_byte = 0xDD;
void check_guards(const void *memory, u32 size);

Bytes little_endian(u32 value, unsigned size);
u32 number_at(const Bytes &b, unsigned offset, unsigned size);

/* Fails the test when the lock is not held. */
void expect_held(const char *function);

/* Records a verb that the library issues and settles its answer. */
Verb &record_verb(Entry entry, u16 version, void *record, appc_completion *routine, u32 user_word);

/* Writes a verb's results to its record. */
void complete(Verb &verb);

} // namespace scripted

#endif
