// states_test.cpp - every call in every state of a conversation, between two real programs: mapped and basic, with sync
// level none and confirm, blocking and non-blocking. What a call leads to is written down once, in the table below. A
// refused call must leave the state as it was, and the conversation must go on to a proper end with all data of both
// sides intact.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace conversations;

namespace {

constexpr long ok = 0, abend = 17, normal_end = 18, product_specific_error = 20, error_no_trunc = 21,
               error_purging = 22, error_trunc = 23, parameter_check = 24, state_check = 25, unsuccessful = 28,
               incomplete = 35;

// The columns. Inside a record (IR): send state of a basic conversation, a logical record half sent.
enum column
{
    in_send,
    inside_record,
    in_receive,
    in_send_pending,
    in_confirm,
    in_confirm_send,
    in_confirm_deallocate,
    columns,
};
const char *const column_names[columns] = {"send",    "inside a record", "receive", "send pending",
                                           "confirm", "confirm send",    "confirm deallocate"};
constexpr long state_of_column[columns] = {3, 3, 4, 5, 6, 7, 8}; // as CMECS has them

// The entries: a state that the call leads to with CM_OK, or why it is refused.
//   SD send, RV receive, SP send pending, CF confirm, CS confirm send, CD confirm deallocate, == the state stays,
//   RS reset: the conversation is over and its ID unknown
//   un  CM_UNSUCCESSFUL, the state stays
//   no  CM_PROGRAM_STATE_CHECK, nothing changes
// Confirm on sync level none is refused everywhere, with the parameter check that tells so where the state allows it.
enum class way
{
    at_once,    // the call needs nothing of the partner
    asks,       // it waits for the partner, or would on sync level confirm
    on_confirm, // the same, and the last of its Set calls is refused on sync level none
};
using enum way;

struct row
{
    const char *name;
    const char *before; // Set calls that come first
    const char *call;   // DATA stands for the bytes to send
    way partner;
    const char *cells; // one entry a column

    std::string cell(int state) const { return std::string(cells).substr(static_cast<std::size_t>(3 * state), 2); }
};

// clang-format off
const row table[] = {
    //                                                                               SD IR RV SP CF CS CD
    {"send, gathered",              "cmsst 0",          "cmhex 0 DATA", at_once,    "SD SD no SD no no no"},
    {"send and flush",              "cmsst 1",          "cmhex 0 DATA", at_once,    "SD SD no SD no no no"},
    {"send and confirm",            "cmsst 2",          "cmhex 0 DATA", on_confirm, "SD no no SD no no no"},
    {"send and prepare, by level",  "cmsst 3 cmsptr 0", "cmhex 0 DATA", asks,       "RV no no RV no no no"},
    {"send and prepare, flush",     "cmsst 3 cmsptr 1", "cmhex 0 DATA", at_once,    "RV no no RV no no no"},
    {"send and prepare, confirm",   "cmsst 3 cmsptr 2", "cmhex 0 DATA", on_confirm, "RV no no RV no no no"},
    {"send and end, by level",      "cmsst 4 cmsdt 0",  "cmhex 0 DATA", asks,       "RS no no RS no no no"},
    {"send and end, flush",         "cmsst 4 cmsdt 1",  "cmhex 0 DATA", at_once,    "RS no no RS no no no"},
    {"send and end, confirm",       "cmsst 4 cmsdt 2",  "cmhex 0 DATA", on_confirm, "RS no no RS no no no"},
    {"send and end, abend",         "cmsst 4 cmsdt 3",  "cmhex 0 DATA", at_once,    "RS RS no RS no no no"},
    {"flush",                       "",                 "cmflus 0",     at_once,    "SD SD no SD no no no"},
    {"confirm",                     "",                 "rts cmcfm 0",  asks,       "SD no no SD no no no"},
    {"confirmed",                   "",                 "cmcfmd 0",     at_once,    "no no no no RV SD RS"},
    {"prepare, by level",           "cmsptr 0",         "cmptr 0",      asks,       "RV no no RV no no no"},
    {"prepare, flush",              "cmsptr 1",         "cmptr 0",      at_once,    "RV no no RV no no no"},
    {"prepare, confirm",            "cmsptr 2",         "cmptr 0",      on_confirm, "RV no no RV no no no"},
    {"receive and wait",            "cmsrt 0",          "cmrcv 0 100",  asks,       "RV no RV RV no no no"},
    {"receive immediate",           "cmsrt 1",          "cmrcv 0 100",  at_once,    "no no un no no no no"},
    {"request to send",             "",                 "cmrts 0",      at_once,    "no no RV no CF CS CD"},
    {"test request to send",        "",                 "rts cmtrts 0", at_once,    "== == == == no no no"},
    {"error in what came",          "cmsed 0",          "rts cmserr 0", at_once,    "SD SD SD SD SD SD SD"},
    {"error in what is sent",       "cmsed 1",          "rts cmserr 0", at_once,    "SD SD SD SD SD SD SD"},
    {"end, by level",               "cmsdt 0",          "cmdeal 0",     asks,       "RS no no RS no no no"},
    {"end, flush",                  "cmsdt 1",          "cmdeal 0",     at_once,    "RS no no RS no no no"},
    {"end, confirm",                "cmsdt 2",          "cmdeal 0",     on_confirm, "RS no no RS no no no"},
    {"end, abend",                  "cmsdt 3",          "cmdeal 0",     at_once,    "RS RS RS RS RS RS RS"},
    {"extract state",               "",                 "ask cmecs 0",  at_once,    "== == == == == == =="},
};
// clang-format on

// How the partner learns of an error, by error direction and column: what was on its way to us, or has come, is void
// (purging), or what we were sending is faulty. The direction counts in send pending state alone.
constexpr long error_code[2][columns] = {
    {error_no_trunc, error_trunc, error_purging, error_purging, error_purging, error_purging, error_purging},
    {error_no_trunc, error_trunc, error_purging, error_no_trunc, error_purging, error_purging, error_purging},
};

// Records of the conversation in hexadecimal; the same bytes on mapped and basic conversations.
const std::string first_record = "00080a0b0c0d0e0f", half_record = "00080a0b", second_half = "0c0d0e0f", piece = "0c",
                  rest_after_piece = "0d0e0f", own_record = "0006aaaaaaaa", last_of_us = "0004bbbb",
                  last_of_partner = "0005cccccc";

struct kind
{
    bool mapped, confirm, blocking;
};

// What has to arrive after the call, beside the last words of the two sides, which the winding up sends.
struct expectation
{
    std::string to_partner, to_us; // records, as windup tells them
    long partner_learns = ok;      // with the call it is waiting in, or with one of the winding up
    bool last_word_taken = false;  // by the call itself
};

bool has(const row &line, const char *word)
{
    return std::string(line.name).find(word) != std::string::npos;
}

long next_state(const std::string &cell, int from)
{
    static const std::map<std::string, long> states = {{"SD", 3}, {"RV", 4}, {"SP", 5}, {"CF", 6},
                                                       {"CS", 7}, {"CD", 8}, {"RS", 0}};
    const auto found = states.find(cell);
    return found == states.end() ? state_of_column[from] : found->second;
}

class States : public testing::TestWithParam<kind>
{
protected:
    States() : server_(home_), client_(home_) { EXPECT_EQ(server_("cmsltp ECHOSRV").rc, ok); }

    // Columns that this kind of conversation has.
    static bool exists(int state)
    {
        return state == inside_record ? !GetParam().mapped : state < in_confirm || GetParam().confirm;
    }

    static bool sending(int state) { return state == in_send || state == inside_record; }

    static bool confirm_at_level_none(const row &line)
    {
        return !GetParam().confirm && std::string(line.call) == "rts cmcfm 0";
    }

    static bool refused(const row &line, int state)
    {
        return line.cell(state) == "no" || confirm_at_level_none(line);
    }

    // A conversation in this state. we_ is the program in it; partner_ may be waiting in a call, whose answer is due.
    void bring_to(int state)
    {
        static const char *const ways[columns] = {"", "", "", "cmptr 0", "rts cmcfm 0", "cmptr 0", "cmdeal 0"};
        server_.send("cmaccp 0");
        ASSERT_EQ(client_("cminit 0 ECHO").rc, ok);
        ASSERT_EQ(client_(std::string("set cmsct 0 ") + (GetParam().mapped ? "1" : "0")).rc, ok);
        ASSERT_EQ(client_(std::string("set cmssl 0 ") + (GetParam().confirm ? "1" : "0")).rc, ok);
        ASSERT_EQ(client_("cmallc 0").rc, ok);
        ASSERT_EQ(client_("cmflus 0").rc, ok);
        ASSERT_EQ(server_.receive().rc, ok);
        we_ = sending(state) ? &client_ : &server_;
        partner_ = sending(state) ? &server_ : &client_;
        partner_waits_ = state >= in_confirm;
        ASSERT_EQ(client_("cmhex 0 " + (state == inside_record ? half_record : first_record)).rc, ok);
        if (state >= in_send_pending)
        {
            ASSERT_EQ(client_(std::string("set cmsptr 0 ") + (state == in_send_pending ? "1" : "0")).rc, ok);
            client_.send(ways[state]);
            if (!partner_waits_)
            {
                ASSERT_EQ(client_.receive().rc, ok);
            }
            const reply got = server_("cmrcv 0 100");
            ASSERT_EQ(got.rc, ok);
            ASSERT_EQ(got.number("data"), 2);
            ASSERT_EQ(got.text("hex"), first_record);
            ASSERT_EQ(got.number("status"), state - in_send_pending + 1);
        }
        if (!GetParam().blocking)
        {
            ASSERT_EQ((*we_)("set cmspm 0 1").rc, ok);
        }
        expect_state(state_of_column[state]);
    }

    // The number that CMECS tells; 0: the conversation is unknown.
    void expect_state(long expected)
    {
        const reply state = (*we_)("ask cmecs 0");
        ASSERT_EQ(state.rc, expected == 0 ? parameter_check : ok);
        if (expected != 0)
        {
            ASSERT_EQ(state.number("value"), expected);
        }
    }

    // The Set calls of a row. False: the row is for sync level confirm, and its Set call has been refused.
    bool prepare(const row &line)
    {
        std::istringstream words(line.before);
        bool possible = true;
        for (std::string call, value; words >> call >> value;)
        {
            const bool no = line.partner == on_confirm && !GetParam().confirm && value == "2";
            EXPECT_EQ((*we_)("set " + call + " 0 " + value).rc, no ? parameter_check : ok);
            possible = possible && !no;
        }
        return possible;
    }

    static std::string command(const row &line, int state)
    {
        std::string text = line.call;
        if (const std::size_t at = text.find("DATA"); at != std::string::npos)
            text.replace(at, 4, state == inside_record ? piece : own_record);
        return text;
    }

    // The answer of a call that has been sent. A non-blocking one may have to be collected.
    reply outcome()
    {
        reply answer = we_->receive();
        if (answer.rc != incomplete)
            return answer;
        EXPECT_FALSE(GetParam().blocking);
        const reply collected = (*we_)("cmwait");
        EXPECT_EQ(collected.rc, ok) << collected.line;
        answer = (*we_)("show 0");
        answer.rc = collected.number("code");
        return answer;
    }

    // Until the outstanding call of we_ has completed; its completion stays to be collected.
    void wait_for_completion()
    {
        reply looked = (*we_)("cmchck");
        for (int i = 0; i < 2000 && looked.rc == unsuccessful; ++i)
            looked = (*we_)("cmchck");
        ASSERT_EQ(looked.rc, ok);
    }

    void tell_partner() { partner_->send("windup 0 " + last_of_partner); }

    // Both sides to the end, the partner being told already.
    void wind_up(const expectation &expected)
    {
        const reply we = (*we_)("windup 0 " + last_of_us);
        if (partner_waits_)
        {
            EXPECT_EQ(partner_->receive().rc, expected.partner_learns);
        }
        const reply partner = partner_->receive();
        ASSERT_EQ(we.rc, ok) << we.line;
        ASSERT_EQ(partner.rc, ok) << partner.line;
        // Whoever had the turn has sent its last word and ended the conversation, as the sync level has it.
        const bool by_us = we.text("sent") == "1", by_partner = partner.text("sent") == "1";
        const std::string end = GetParam().confirm ? "" : std::to_string(normal_end) + ",";
        const bool told = !partner_waits_ && expected.partner_learns != ok;
        EXPECT_EQ(partner.text("got"), expected.to_partner + (by_us ? last_of_us + "," : ""));
        EXPECT_EQ(we.text("got"),
                  expected.to_us + (by_partner && !expected.last_word_taken ? last_of_partner + "," : ""));
        EXPECT_EQ(we.text("codes"), by_partner ? end : "");
        EXPECT_EQ(partner.text("codes"),
                  (told ? std::to_string(expected.partner_learns) + "," : "") + (by_us ? end : ""));
    }

    // What is on its way in this state and arrives if nothing makes it void.
    static expectation in_flight(int state)
    {
        expectation expected;
        if (sending(state))
            expected.to_partner = first_record + ",";
        if (state == in_receive)
            expected.to_us = first_record + ",";
        return expected;
    }

    // Every call that this state refuses, one after the other on one conversation, which then ends as if none had been
    // made.
    void refuse_all(int state)
    {
        bring_to(state);
        for (const row &line : table)
        {
            SCOPED_TRACE(line.name);
            if (!refused(line, state) || !prepare(line))
                continue;
            we_->send(command(line, state));
            const bool wrong_level = confirm_at_level_none(line) && (sending(state) || state == in_send_pending);
            EXPECT_EQ(outcome().rc, wrong_level ? parameter_check : state_check);
            ASSERT_NO_FATAL_FAILURE(expect_state(state_of_column[state]));
        }
        if (state == inside_record)
        {
            ASSERT_EQ((*we_)("set cmsst 0 0").rc, ok);
            ASSERT_EQ((*we_)("cmhex 0 " + second_half).rc, ok);
        }
        tell_partner();
        expectation expected = in_flight(state);
        wind_up(expected);
    }

    // One call that this state allows, and the conversation to its end.
    void allow(const row &line, int state)
    {
        bring_to(state);
        if (!prepare(line))
            return discard();
        we_->send(command(line, state));
        if (line.partner != at_once)
            tell_partner();
        const reply answer = outcome();
        const std::string cell = line.cell(state);
        EXPECT_EQ(answer.rc, cell == "un" ? unsuccessful : ok) << answer.line;
        ASSERT_NO_FATAL_FAILURE(expect_state(next_state(cell, state)));
        expectation expected = in_flight(state);
        apply(line, state, answer, expected);
        if (line.partner == at_once)
            tell_partner();
        wind_up(expected);
    }

    // What an allowed call changes of what arrives.
    void apply(const row &line, int state, const reply &answer, expectation &expected)
    {
        const bool sends = has(line, "send,") || has(line, "send and");
        std::string rest = state == inside_record ? second_half : "";
        if (sends && state == inside_record)
            rest = rest_after_piece;
        else if (sends)
            expected.to_partner += own_record + ",";
        if (has(line, "abend") || has(line, "error"))
        {
            // A record that is cut off comes as far as it got.
            if (state == inside_record)
                expected.to_partner = first_record.substr(0, first_record.size() - rest.size()) + "+";
            rest.clear();
        }
        if (has(line, "abend") || has(line, "error"))
            expected.to_us.clear(); // nobody takes it any more
        if (has(line, "abend"))
            expected.partner_learns = abend;
        else if (has(line, "error"))
            expected.partner_learns = error_code[has(line, "is sent") ? 1 : 0][state];
        else if (line.cell(state) == "RS" && !partner_waits_)
            expected.partner_learns = GetParam().confirm && !has(line, "flush") ? ok : normal_end;
        else if (has(line, "receive and wait"))
        {
            EXPECT_EQ(answer.text("hex"), state == in_receive ? first_record : last_of_partner);
            EXPECT_EQ(answer.number("data"), 2);
            EXPECT_EQ(answer.number("status"), 0);
            expected.last_word_taken = state != in_receive;
            expected.to_us.clear();
        }
        if (!rest.empty())
        {
            EXPECT_EQ((*we_)("set cmsst 0 0").rc, ok);
            EXPECT_EQ((*we_)("cmhex 0 " + rest).rc, ok);
        }
    }

    // Ends a conversation with which there is nothing to try.
    void discard()
    {
        tell_partner();
        ASSERT_EQ((*we_)("windup 0 " + last_of_us).rc, ok);
        ASSERT_EQ(partner_->receive().rc, ok);
    }

    node home_;
    tp server_, client_;
    tp *we_ = nullptr, *partner_ = nullptr;
    bool partner_waits_ = false;
};

class StatesOfNonBlocking : public States
{
};

std::string name_of_kind(const testing::TestParamInfo<kind> &of)
{
    return std::string(of.param.mapped ? "mapped" : "basic") + (of.param.confirm ? "_confirm" : "_none") +
           (of.param.blocking ? "_blocking" : "_nonblocking");
}

} // namespace

TEST_P(States, a_refused_call_leaves_the_conversation_intact)
{
    for (int state = 0; state < columns; ++state)
    {
        SCOPED_TRACE(column_names[state]);
        if (exists(state))
        {
            ASSERT_NO_FATAL_FAILURE(refuse_all(state));
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST_P(States, an_allowed_call_leads_where_the_table_says)
{
    for (int state = 0; state < columns; ++state)
        for (const row &line : table)
        {
            SCOPED_TRACE(column_names[state]);
            SCOPED_TRACE(line.name);
            if (exists(state) && !refused(line, state))
            {
                ASSERT_NO_FATAL_FAILURE(allow(line, state));
            }
            ASSERT_FALSE(HasFailure());
        }
}

// Reset state has two faces: before the allocation every call is refused but the abnormal end, and after the end the
// conversation is unknown.
TEST_P(States, before_the_allocation_and_after_the_end)
{
    for (const row &line : table)
    {
        SCOPED_TRACE(line.name);
        we_ = &client_;
        ASSERT_EQ(client_("cminit 0 ECHO").rc, ok);
        ASSERT_EQ(client_(std::string("set cmsct 0 ") + (GetParam().mapped ? "1" : "0")).rc, ok);
        ASSERT_EQ(client_(std::string("set cmssl 0 ") + (GetParam().confirm ? "1" : "0")).rc, ok);
        ASSERT_EQ(client_(std::string("set cmspm 0 ") + (GetParam().blocking ? "0" : "1")).rc, ok);
        const bool extract = has(line, "extract"), end = std::string(line.name) == "end, abend";
        if (prepare(line))
        {
            EXPECT_EQ(client_(command(line, in_send)).rc, extract || end ? ok : state_check);
        }
        expect_state(end ? 0 : 2);
        ASSERT_EQ(client_("cmcanc 0").rc, end ? parameter_check : ok);
        EXPECT_EQ(client_(command(line, in_send)).rc, parameter_check);
    }
    ASSERT_NO_FATAL_FAILURE(bring_to(in_send));
    tell_partner();
    wind_up(in_flight(in_send));
    for (const row &line : table)
    {
        SCOPED_TRACE(line.name);
        EXPECT_EQ(client_(command(line, in_send)).rc, parameter_check);
        EXPECT_EQ(server_(command(line, in_send)).rc, parameter_check);
    }
}

// A conversation that has ended with a non-blocking call whose completion has not been collected: the library still has
// its record and the node has none. The first call forgets the completion and, told of the unknown conversation, the
// record; Test Request to Send alone tells nothing and leaves that to the next call.
TEST_P(StatesOfNonBlocking, after_an_end_that_nobody_has_collected)
{
    for (const row &line : table)
    {
        SCOPED_TRACE(line.name);
        ASSERT_NO_FATAL_FAILURE(bring_to(in_receive));
        ASSERT_EQ((*partner_)("cmflus 0").rc, ok);
        ASSERT_EQ((*we_)("cmrcv 0 100").text("hex"), first_record);
        ASSERT_EQ((*we_)("cmrcv 0 100").rc, incomplete);
        ASSERT_EQ((*partner_)("set cmsdt 0 3").rc, ok);
        ASSERT_EQ((*partner_)("cmdeal 0").rc, ok);
        ASSERT_NO_FATAL_FAILURE(wait_for_completion());
        if (std::string(line.call) == "rts cmtrts 0")
        {
            EXPECT_EQ((*we_)(line.call).rc, ok);
            EXPECT_EQ((*we_)("cmflus 0").rc, product_specific_error);
        }
        else if (prepare(line))
        {
            EXPECT_EQ((*we_)(command(line, in_receive)).rc, product_specific_error);
        }
        else
        {
            EXPECT_EQ((*we_)("cmflus 0").rc, product_specific_error);
        }
        expect_state(0);
        EXPECT_EQ((*we_)("cmwait").rc, state_check); // nothing to collect
    }
}

INSTANTIATE_TEST_SUITE_P(Conversations, States,
                         testing::Values(kind{true, false, true}, kind{true, false, false}, kind{true, true, true},
                                         kind{true, true, false}, kind{false, false, true}, kind{false, false, false},
                                         kind{false, true, true}, kind{false, true, false}),
                         name_of_kind);
INSTANTIATE_TEST_SUITE_P(Conversations, StatesOfNonBlocking,
                         testing::Values(kind{true, false, false}, kind{true, true, false}, kind{false, false, false},
                                         kind{false, true, false}),
                         name_of_kind);
