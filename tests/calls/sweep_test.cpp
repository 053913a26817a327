/* sweep_test.cpp - rules that hold for whole families of calls, over one table of all 61 entry points: an unknown
 * conversation ID, a verb pending, the upper-case twin, the lock, nothing written beside an output. */
#include "calls.hpp"

#include <memory>

namespace
{

/* One argument of a call. */
struct Argument
{
    enum Kind
    {
        id,         /* conversation ID, in */
        id_out,     /* conversation ID, out */
        number,     /* 32-bit, in */
        number_out, /* 32-bit, out */
        text,       /* characters, in */
        text_out,   /* bytes, out: `value` of them */
        ignored,    /* not looked at: null */
    } kind;
    long value = 0;
    const char *characters = nullptr;
};

/* What state the conversation is in for the call to do its ordinary work. */
enum class In
{
    initialised,
    incoming,
    allocated,
    no_conversation
};

constexpr int no_problem = -1; /* an unknown ID is not logged */

struct Row
{
    const char *name;
    AnyCall lower, upper;
    In state;
    int detail;         /* of problem 0x20030005 */
    bool refused_while_pending; /* 37 while a verb is pending */
    std::vector<Argument> arguments;
};

#define CALL(lower, upper) #lower, reinterpret_cast<AnyCall>(lower), reinterpret_cast<AnyCall>(upper)
using A = Argument;

const A an_id = {A::id};
const A an_id_out = {A::id_out};
const A out = {A::number_out};

A in(long value)
{
    return {A::number, value};
}
A text(const char *characters)
{
    return {A::text, 0, characters};
}
A bytes_out(long size)
{
    return {A::text_out, size};
}

/* The caller's side-information entry: an alias, an application TP, no security. */
const char *entry_of_caller()
{
    static const std::string entry = [] {
        std::string e = "SWEEP   PARTNER             ";
        e.append(4, '\0');
        e += "TPNAME" + std::string(58, ' ') + "#INTER  ";
        e.append(4, '\0');
        e += std::string(16, ' ');
        return e;
    }();
    EXPECT_EQ(124u, entry.size());
    return entry.data();
}

const std::vector<Row> &rows()
{
    static const std::vector<Row> table = {
        {CALL(cmaccp, CMACCP), In::no_conversation, no_problem, false, {an_id_out}},
        {CALL(cmacci, CMACCI), In::incoming, 0, true, {an_id}},
        {CALL(cmallc, CMALLC), In::initialised, 1, true, {an_id}},
        {CALL(cmcanc, CMCANC), In::allocated, 2, false, {an_id}},
        {CALL(cmcfm, CMCFM), In::allocated, 3, true, {an_id, out}},
        {CALL(cmcfmd, CMCFMD), In::allocated, 4, true, {an_id}},
        {CALL(cmdeal, CMDEAL), In::allocated, 5, true, {an_id}},
        {CALL(cmwait, CMWAIT), In::no_conversation, no_problem, false, {an_id_out, out}},
        {CALL(cmchck, CMCHCK), In::no_conversation, no_problem, false, {an_id_out}},
        {CALL(cmectx, CMECTX), In::allocated, 6, false, {an_id, bytes_out(8), out}},
        {CALL(cmsctx, CMSCTX), In::no_conversation, no_problem, false, {text("\0\0\0\0\0\0\0\0"), in(8)}},
        {CALL(cmembs, CMEMBS), In::no_conversation, no_problem, false, {out}},
        {CALL(cminic, CMINIC), In::no_conversation, no_problem, false, {an_id_out}},
        {CALL(cminit, CMINIT), In::no_conversation, no_problem, false, {an_id_out, text("        ")}},
        {CALL(cmflus, CMFLUS), In::allocated, 12, true, {an_id}},
        {CALL(cmesl, CMESL), In::initialised, 11, false, {an_id, out}},
        {CALL(cmelln, CMELLN), In::allocated, 90, false, {an_id, bytes_out(9)}},
        {CALL(cmepln, CMEPLN), In::initialised, 10, false, {an_id, bytes_out(17), out}},
        {CALL(cmemn, CMEMN), In::initialised, 9, false, {an_id, bytes_out(8), out}},
        {CALL(cmect, CMECT), In::initialised, 8, false, {an_id, out}},
        {CALL(cmecs, CMECS), In::allocated, no_problem, true, {an_id, out}},
        {CALL(cmptr, CMPTR), In::allocated, 13, true, {an_id}},
        {CALL(cmrcv, CMRCV), In::allocated, 14, true, {an_id, bytes_out(20), in(20), out, out, out, out}},
        {CALL(cmrts, CMRTS), In::allocated, 15, true, {an_id}},
        {CALL(cmsend, CMSEND), In::allocated, 16, true, {an_id, text("hello"), in(5), out}},
        {CALL(cmserr, CMSERR), In::allocated, 17, true, {an_id, out}},
        {CALL(cmsct, CMSCT), In::initialised, 18, false, {an_id, in(0)}},
        {CALL(cmsdt, CMSDT), In::initialised, 19, false, {an_id, in(1)}},
        {CALL(cmsed, CMSED), In::initialised, 20, false, {an_id, in(1)}},
        {CALL(cmsf, CMSF), In::initialised, 21, false, {an_id, in(1)}},
        {CALL(cmsld, CMSLD), In::initialised, 22, false, {an_id, text("log"), in(3)}},
        {CALL(cmslln, CMSLLN), In::initialised, 24, false, {an_id, text("OURLU"), in(5)}},
        {CALL(cmsmn, CMSMN), In::initialised, 23, false, {an_id, text("#INTER"), in(6)}},
        {CALL(cmspln, CMSPLN), In::initialised, 24, false, {an_id, text("NETA.LU"), in(7)}},
        {CALL(cmsptr, CMSPTR), In::initialised, 25, false, {an_id, in(1)}},
        {CALL(cmsrt, CMSRT), In::initialised, 26, false, {an_id, in(1)}},
        {CALL(cmsrc, CMSRC), In::initialised, 27, false, {an_id, in(1)}},
        {CALL(cmsst, CMSST), In::initialised, 28, false, {an_id, in(1)}},
        {CALL(cmssl, CMSSL), In::initialised, 29, false, {an_id, in(1)}},
        {CALL(cmstpn, CMSTPN), In::initialised, 30, false, {an_id, text("SERVER"), in(6)}},
        {CALL(cmtrts, CMTRTS), In::allocated, 31, true, {an_id, out}},
        {CALL(cmspm, CMSPM), In::initialised, 32, true, {an_id, in(1)}},
        {CALL(cmcnvi, CMCNVI), In::no_conversation, no_problem, false, {bytes_out(6), in(6)}},
        {CALL(cmcnvo, CMCNVO), In::no_conversation, no_problem, false, {bytes_out(6), in(6)}},
        {CALL(cmsltp, CMSLTP), In::no_conversation, no_problem, false, {text("SERVER"), in(6)}},
        {CALL(cmrltp, CMRLTP), In::no_conversation, no_problem, false, {text("SERVER"), in(6)}},
        {CALL(cmetpn, CMETPN), In::allocated, 33, true, {an_id, bytes_out(64), out}},
        {CALL(xcmdsi, XCMDSI), In::no_conversation, no_problem, false, {{A::ignored}, text("SWEEP   ")}},
        {CALL(xcecst, XCECST), In::initialised, 34, false, {an_id, out}},
        {CALL(cmecst, CMECST), In::initialised, 39, false, {an_id, out}},
        {CALL(xcecsu, XCECSU), In::initialised, 35, false, {an_id, bytes_out(10), out}},
        {CALL(cmecsu, CMECSU), In::initialised, 35, false, {an_id, bytes_out(10), out}},
        {CALL(cmesui, CMESUI), In::initialised, 35, false, {an_id, bytes_out(10), out}},
        {CALL(xcmesi, XCMESI), In::no_conversation, no_problem, false,
         {in(0), text("SWEEP   "), bytes_out(124), in(124)}},
        {CALL(xcscsp, XCSCSP), In::initialised, 36, false, {an_id, text("SECRET"), in(6)}},
        {CALL(cmscsp, CMSCSP), In::initialised, 36, false, {an_id, text("SECRET"), in(6)}},
        {CALL(xcscst, XCSCST), In::initialised, 37, false, {an_id, in(2)}},
        {CALL(cmscst, CMSCST), In::initialised, 37, false, {an_id, in(2)}},
        {CALL(xcscsu, XCSCSU), In::initialised, 38, false, {an_id, text("USER"), in(4)}},
        {CALL(cmscsu, CMSCSU), In::initialised, 38, false, {an_id, text("USER"), in(4)}},
        {CALL(xcmssi, XCMSSI), In::no_conversation, no_problem, false,
         {{A::ignored}, text(entry_of_caller()), in(124)}},
        {CALL(cmterm, CMTERM), In::no_conversation, no_problem, false, {in(0)}},
    };
    return table;
}

/* The storage of one call's arguments, and the call. */
class Invocation
{
    std::vector<std::unique_ptr<Out>> numbers;
    std::vector<std::unique_ptr<Buffer>> buffers;
    std::vector<void *> addresses;
    Id *conversation_id;

public:
    std::vector<Out *> outputs;
    std::vector<Buffer *> byte_outputs;
    Id *new_id = nullptr;
    long return_code = -1;

    Invocation(const Row &row, Id &conversation) : conversation_id(&conversation)
    {
        for (const Argument &argument : row.arguments)
        {
            switch (argument.kind)
            {
            case A::id:
                addresses.push_back(conversation.address());
                break;
            case A::id_out:
                buffers.push_back(std::make_unique<Id>());
                new_id = static_cast<Id *>(buffers.back().get());
                addresses.push_back(new_id->address());
                break;
            case A::number:
                numbers.push_back(std::make_unique<Out>(argument.value));
                addresses.push_back(numbers.back()->address());
                break;
            case A::number_out:
                numbers.push_back(std::make_unique<Out>());
                outputs.push_back(numbers.back().get());
                addresses.push_back(numbers.back()->address());
                break;
            case A::text:
                addresses.push_back(const_cast<char *>(argument.characters));
                break;
            case A::text_out:
                buffers.push_back(std::make_unique<Buffer>(static_cast<size_t>(argument.value)));
                byte_outputs.push_back(buffers.back().get());
                addresses.push_back(buffers.back()->address());
                break;
            case A::ignored:
                addresses.push_back(nullptr);
                break;
            }
        }
    }

    void run(AnyCall function)
    {
        /* Up to eight arguments, return code included: the caller takes them off the stack, so that more than the
         * function has do no harm. */
        Out rc;
        std::vector<void *> a = addresses;
        a.push_back(rc.address());
        a.resize(8, nullptr);
        reinterpret_cast<void (*)(void *, void *, void *, void *, void *, void *, void *, void *)>(function)(
            a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
        rc.check();
        for (const auto &number : numbers)
        {
            number->check();
        }
        for (const auto &buffer : buffers)
        {
            buffer->check();
        }
        conversation_id->check();
        EXPECT_FALSE(node.held) << "returned with the lock held";
        node.check_counters();
        return_code = rc.value();
    }

    bool outputs_untouched() const
    {
        bool untouched = true;
        for (const Out *output : outputs)
        {
            untouched = untouched && output->untouched();
        }
        for (const Buffer *buffer : byte_outputs)
        {
            untouched = untouched && buffer->untouched();
        }
        return untouched;
    }
};

class Sweep : public CallTest
{
protected:
    /* A conversation on which the call does its ordinary work. */
    static Id prepared(const Row &row)
    {
        const std::string name = row.name;
        switch (row.state)
        {
        case In::allocated:
            return allocated();
        case In::incoming:
            return incoming();
        case In::no_conversation:
            return Id();
        case In::initialised:
            break;
        }
        Id id = initialised();
        if (name == "cmsf" || name == "cmsld")
        {
            id.cccb().ulConversationType = 0;
        }
        if (name == "cmscsp" || name == "xcscsp")
        {
            id.cccb().SideInfo.ulSecurityType = 2;
        }
        return id;
    }

    /* What a run left, for comparing two runs: return code, outputs, verbs, logs, the conversation. */
    static std::string account(const Row &row, AnyCall function)
    {
        node.reset();
        unsetenv("APPCLLU");
        unsetenv("APPCTPN");
        Id id = prepared(row);
        if (row.state == In::no_conversation)
        {
            initialised(); /* the library has started */
        }
        Invocation invocation(row, id);
        invocation.run(function);
        std::string text = "rc " + std::to_string(invocation.return_code);
        for (const Out *output : invocation.outputs)
        {
            text += " out " + std::to_string(output->value());
        }
        for (const Buffer *buffer : invocation.byte_outputs)
        {
            text += " bytes " + hex(buffer->content());
        }
        if (invocation.new_id != nullptr)
        {
            text += " id " + hex(invocation.new_id->content());
        }
        for (const Verb &verb : node.verbs)
        {
            Bytes issued = verb.issued;
            /* Pointers differ from run to run. */
            const bool long_record = issued.size() == CPIC_VERB_SIZE;
            for (size_t offset : {size_t(28), size_t(36), size_t(196)})
            {
                if (long_record && verb.opcode != NAP_TP_STARTED && verb.opcode != NAP_M_ALLOCATE)
                {
                    std::fill_n(issued.begin() + static_cast<int>(offset), 4, u8(0));
                }
            }
            if (verb.opcode == NOF_QUERY_SIDE_INFO)
            {
                std::fill_n(issued.begin() + 12, 4, u8(0));
            }
            text += "\nverb " + hex(issued) + " points at " + hex(verb.pointed_at);
        }
        for (const Log &log : node.problems)
        {
            text += "\nproblem " + std::to_string(log.code) + " " + std::to_string(log.detail);
        }
        for (const Log &log : node.audits)
        {
            text += "\naudit " + std::to_string(log.code) + " " + std::to_string(log.detail);
        }
        if (row.state != In::no_conversation && id.exists())
        {
            CCCB copy = id.cccb();
            copy.LogData = nullptr;
            copy.pSavedConvId = nullptr;
            copy.pOut1 = copy.pOut2 = copy.pOut3 = copy.pOut4 = copy.pOut5 = nullptr;
            memset(&copy.vcb, 0, sizeof(copy.vcb));
            text += "\nrecord " + hex(&copy, sizeof(copy));
        }
        text += "\nglobal " + hex(&library_gcb, 104);
        node.problems.clear();
        return text;
    }
};

} // namespace

TEST_F(Sweep, the_table_has_every_call)
{
    EXPECT_EQ(62u, rows().size());
}

TEST_F(Sweep, every_call_with_an_unknown_conversation_id)
{
    initialised();
    for (const Row &row : rows())
    {
        if (row.state == In::no_conversation)
        {
            continue;
        }
        SCOPED_TRACE(row.name);
        for (const Bytes &content : {Bytes(8, 0), Bytes{0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4}})
        {
            Id id(content);
            Invocation invocation(row, id);
            invocation.run(row.lower);
            EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, invocation.return_code);
            if (row.detail == no_problem)
            {
                EXPECT_TRUE(node.problems.empty());
            }
            else
            {
                expect_unknown_id(static_cast<unsigned>(row.detail), id);
            }
            if (std::string(row.name) == "cmrcv")
            {
                EXPECT_EQ(0, invocation.outputs[1]->value()) << "the received length is set first";
                *invocation.outputs[1] = Out();
            }
            EXPECT_TRUE(invocation.outputs_untouched());
            EXPECT_EQ(content, id.content());
        }
    }
    expect_no_verb();
}

TEST_F(Sweep, every_call_with_an_unknown_conversation_id_before_the_start)
{
    for (const Row &row : rows())
    {
        if (row.state == In::no_conversation)
        {
            continue;
        }
        SCOPED_TRACE(row.name);
        Id id(Bytes(8, 0x33));
        Invocation invocation(row, id);
        invocation.run(row.lower);
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, invocation.return_code);
        if (row.detail != no_problem)
        {
            expect_unknown_id(static_cast<unsigned>(row.detail), id);
        }
        EXPECT_EQ(0, library_started);
    }
    expect_no_verb();
}

TEST_F(Sweep, every_call_with_a_verb_pending)
{
    for (const Row &row : rows())
    {
        if (row.state == In::no_conversation || std::string(row.name) == "cmcanc")
        {
            continue;
        }
        SCOPED_TRACE(row.name);
        Id id = busy();
        const CCCB before = id.cccb();
        Invocation invocation(row, id);
        invocation.run(row.lower);
        if (row.refused_while_pending)
        {
            EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, invocation.return_code);
            if (std::string(row.name) == "cmacci")
            {
                node.problem(0x2003000C, 1);
            }
            if (std::string(row.name) == "cmrcv")
            {
                *invocation.outputs[1] = Out();
            }
            EXPECT_TRUE(invocation.outputs_untouched());
            if (std::string(row.name) != "cmallc")
            {
                EXPECT_EQ(1u, node.verbs.size());
                EXPECT_EQ(0, memcmp(&before, id.find(), sizeof(before))) << "the conversation is unchanged";
            }
        }
        else
        {
            EXPECT_NE(CM_OPERATION_NOT_ACCEPTED, invocation.return_code);
        }
        EXPECT_EQ(1, id.cccb().usVerbsPending);
        node.deliver_all();
        EXPECT_EQ(0, id.cccb().usVerbsPending);
        node.forget();
    }
}

TEST_F(Sweep, every_upper_case_call_does_the_same_as_its_lower_case_twin)
{
    for (const Row &row : rows())
    {
        SCOPED_TRACE(row.name);
        EXPECT_NE(row.lower, row.upper);
        EXPECT_EQ(account(row, row.lower), account(row, row.upper));
    }
}

TEST_F(Sweep, every_call_does_its_ordinary_work_under_one_lock)
{
    for (const Row &row : rows())
    {
        SCOPED_TRACE(row.name);
        node.reset();
        Id id = prepared(row);
        if (row.state == In::no_conversation)
        {
            initialised();
        }
        const unsigned before = node.lock_calls;
        Invocation invocation(row, id);
        invocation.run(row.lower);
        EXPECT_EQ(before + 1, node.lock_calls);
        const std::string name = row.name;
        long expected = CM_OK;
        if (name == "cmwait" || name == "cmchck")
        {
            expected = CM_PROGRAM_STATE_CHECK;
        }
        if (name == "cmrltp" || name == "xcmdsi" || name == "xcmesi")
        {
            expected = CM_PROGRAM_PARAMETER_CHECK;
        }
        EXPECT_EQ(expected, invocation.return_code);
        node.verify();
        node.reset();
    }
}
