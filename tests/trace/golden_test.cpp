/* golden_test.cpp - conversations that use every call once, with API trace on, against the trace text that is kept in
 * golden.txt. Addresses are masked. After a change that is meant, write the file anew and read what changed in it:
 *
 *     CPIC_WRITE_GOLDEN=1 .../tests/trace_golden_test && git diff tests/trace/golden.txt
 */
#include "calls.hpp"

#include <cctype>
#include <fstream>
#include <sstream>

namespace
{

constexpr const char *PASSWORD = "SESAME";

class Golden : public CallTest
{
protected:
    void SetUp() override
    {
        CallTest::SetUp();
        node.api_trace(true);
    }

    /* The trace as a reader would have it: an empty line before each record, dumps of 16 bytes a line. */
    static std::string trace_text()
    {
        std::string text;
        for (const auto &[kind, content] : node.trace)
        {
            if (kind == "sep")
            {
                text += "\n";
            }
            else if (kind == "line")
            {
                text += masked(content) + "\n";
            }
            else
            {
                constexpr size_t bytes_of_line = 16 * 3;
                for (size_t at = 0; at < content.size(); at += bytes_of_line)
                {
                    text += "    " + content.substr(at, bytes_of_line - 1) + "\n";
                }
            }
        }
        return text;
    }

private:
    static std::string masked(std::string line)
    {
        const size_t address = line.find("0x");
        if (address == std::string::npos)
        {
            return line;
        }
        size_t end = address + 2;
        while (end < line.size() && isxdigit(static_cast<unsigned char>(line[end])))
        {
            ++end;
        }
        return line.replace(address, end - address, "<address>");
    }
};

/* ---- the calls ------------------------------------------------------------------------------------------ */

void side_information(Buffer &entry)
{
    SIDE_INFO &fields = *reinterpret_cast<SIDE_INFO *>(entry.address());
    memset(&fields, ' ', sizeof fields);
    memcpy(fields.sym_dest_name, "FILES", 5);
    memcpy(fields.partner_LU_name, "NETA.LUB", 8);
    memset(fields.reserved, 0, sizeof fields.reserved);
    fields.TP_name_type = CM_APPLICATION_TP;
    memcpy(fields.TP_name, "FILESERV", 8);
    memcpy(fields.mode_name, "#BATCH", 6);
    fields.conversation_security_type = CM_SECURITY_PROGRAM;
    memcpy(fields.security_user_ID, "ANNA", 4);
    memcpy(fields.security_password, PASSWORD, 6);

    EXPECT_EQ(CM_OK, call(xcmssi, Bytes(8, ' '), entry, CM_SIDE_INFO_SIZE));
    Buffer found(CM_SIDE_INFO_SIZE);
    EXPECT_EQ(CM_OK, call(xcmesi, 1, "FILES   ", found, CM_SIDE_INFO_SIZE));
}

void set_characteristics(Id &id)
{
    EXPECT_EQ(CM_OK, call(cmsct, id, CM_BASIC_CONVERSATION));
    EXPECT_EQ(CM_OK, call(cmssl, id, CM_CONFIRM));
    EXPECT_EQ(CM_OK, call(cmsrc, id, CM_IMMEDIATE));
    EXPECT_EQ(CM_OK, call(cmslln, id, "LOCALLU", 7));
    EXPECT_EQ(CM_OK, call(cmsmn, id, "#INTER", 6));
    EXPECT_EQ(CM_OK, call(cmspln, id, "NETA.LUC", 8));
    EXPECT_EQ(CM_OK, call(cmstpn, id, "PRINTSRV", 8));
    EXPECT_EQ(CM_OK, call(cmsf, id, CM_FILL_BUFFER));
    EXPECT_EQ(CM_OK, call(cmsed, id, CM_SEND_ERROR));
    EXPECT_EQ(CM_OK, call(cmsptr, id, CM_PREP_TO_RECEIVE_FLUSH));
    EXPECT_EQ(CM_OK, call(cmsrt, id, CM_RECEIVE_IMMEDIATE));
    EXPECT_EQ(CM_OK, call(cmsst, id, CM_SEND_AND_FLUSH));
    EXPECT_EQ(CM_OK, call(cmsdt, id, CM_DEALLOCATE_ABEND));
    EXPECT_EQ(CM_OK, call(cmsld, id, "out of paper", 12));
    EXPECT_EQ(CM_OK, call(xcscst, id, CM_SECURITY_NONE));
    EXPECT_EQ(CM_OK, call(cmscst, id, CM_SECURITY_PROGRAM_STRONG));
    EXPECT_EQ(CM_OK, call(xcscsu, id, "BERT", 4));
    EXPECT_EQ(CM_OK, call(cmscsu, id, "ANNAMARIA2", 10));
    EXPECT_EQ(CM_OK, call(xcscsp, id, PASSWORD, 6));
    EXPECT_EQ(CM_OK, call(cmscsp, id, PASSWORD, 6));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmssl, id, CM_SYNC_POINT)); /* refused, and traced all the same */
}

void extract_characteristics(Id &id)
{
    Out value, length;
    Buffer name(64);
    EXPECT_EQ(CM_OK, call(cmecs, id, value));
    EXPECT_EQ(CM_OK, call(cmect, id, value));
    EXPECT_EQ(CM_OK, call(cmesl, id, value));
    EXPECT_EQ(CM_OK, call(cmecst, id, value));
    EXPECT_EQ(CM_OK, call(xcecst, id, value));
    EXPECT_EQ(CM_OK, call(cmemn, id, name, length));
    EXPECT_EQ(CM_OK, call(cmepln, id, name, length));
    EXPECT_EQ(CM_OK, call(cmelln, id, name));
    EXPECT_EQ(CM_OK, call(cmetpn, id, name, length));
    EXPECT_EQ(CM_OK, call(cmecsu, id, name, length));
    EXPECT_EQ(CM_OK, call(xcecsu, id, name, length));
    EXPECT_EQ(CM_OK, call(cmesui, id, name, length));
    EXPECT_EQ(CM_OK, call(cmembs, value));
}

/* Data and control over an allocated conversation, each call as the node lets it succeed. */
void talk(Id &id)
{
    Out requested, data_received, received_length, status, length;
    Buffer buffer(40), context(8);
    EXPECT_EQ(CM_OK, call(cmsend, id, "hello", 5, requested));
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_EQ(CM_OK, call(cmcfm, id, requested));
    EXPECT_EQ(CM_OK, call(cmptr, id));
    node.next(NAP_RECEIVE_IMMEDIATE, succeeds().received("good morning", 0x0100));
    EXPECT_EQ(CM_OK, call(cmrcv, id, buffer, 40, data_received, received_length, status, requested));
    EXPECT_EQ(CM_OK, call(cmcfmd, id));
    EXPECT_EQ(CM_OK, call(cmrts, id));
    EXPECT_EQ(CM_OK, call(cmserr, id, requested));
    node.next(NAP_TEST_RTS, fails(0x1400));
    EXPECT_EQ(CM_OK, call(cmtrts, id, requested));
    EXPECT_EQ(CM_OK, call(cmectx, id, context, length));
    EXPECT_EQ(CM_OK, call(cmsctx, context, 8));
}

/* A completion's own response record, with its outputs, stands between the records of its call and of CMCHCK. */
void complete_later(Id &id)
{
    Id found;
    Out collected, data_received(0), received_length, status(0), request_to_send(0);
    Buffer buffer(40);
    EXPECT_EQ(CM_OK, call(cmspm, id, CM_NON_BLOCKING));
    node.next(NAP_RECEIVE_IMMEDIATE, later(fails(0x0D00).received("half", 0x0400).put8(28, 1)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE,
              call(cmrcv, id, buffer, 40, data_received, received_length, status, request_to_send));
    node.deliver_all();
    EXPECT_EQ(CM_OK, call(cmchck, found));
    EXPECT_EQ(CM_OK, call(cmwait, found, collected));
    EXPECT_EQ(CM_PROGRAM_ERROR_TRUNC, collected.value());
    EXPECT_EQ(CM_OK, call(cmspm, id, CM_BLOCKING));
}

void accept()
{
    EXPECT_EQ(CM_OK, call(cmsltp, "PRINTER", 7));
    Id accepted, incoming;
    EXPECT_EQ(CM_OK, call(cmaccp, accepted));
    EXPECT_EQ(CM_OK, call(cmdeal, accepted));
    EXPECT_EQ(CM_OK, call(cminic, incoming));
    EXPECT_EQ(CM_OK, call(cmacci, incoming));
    EXPECT_EQ(CM_OK, call(cmcanc, incoming));
    EXPECT_EQ(CM_OK, call(cmrltp, "PRINTER", 7));
}

void convert()
{
    Buffer text(scripted::bytes("Text 1"));
    EXPECT_EQ(CM_OK, call(cmcnvo, text, 6));
    EXPECT_EQ(CM_OK, call(cmcnvi, text, 6));
}

} // namespace

TEST_F(Golden, every_call)
{
    Buffer entry(CM_SIDE_INFO_SIZE);
    side_information(entry);
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "FILES   "));
    set_characteristics(id);
    extract_characteristics(id);
    EXPECT_EQ(CM_OK, call(cmallc, id));
    talk(id);
    complete_later(id);
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id)); /* gone */
    node.problem(0x20030005, 12);
    accept();
    convert();
    EXPECT_EQ(CM_OK, call(xcmdsi, Bytes(8, ' '), "FILES   "));
    EXPECT_EQ(CM_OK, call(cmterm, CM_SOFT));

    const std::string text = trace_text();

#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail)                                                      \
    EXPECT_NE(std::string::npos, text.find("\n" #UPPER " request\n"));                                                 \
    EXPECT_NE(std::string::npos, text.find("\n" #UPPER " response, result = CM_OK\n"));
#include "core/calls.def"
#undef CPIC_CALL

    const std::string passwords[] = {PASSWORD, hex(scripted::bytes(PASSWORD)), hex(ebcdic(PASSWORD))};
    for (const auto &[kind, content] : node.trace)
    {
        for (const std::string &password : passwords)
        {
            EXPECT_EQ(std::string::npos, content.find(password)) << content;
        }
    }

    if (getenv("CPIC_WRITE_GOLDEN") != nullptr)
    {
        std::ofstream(GOLDEN_TRACE) << text;
    }
    std::ifstream file(GOLDEN_TRACE);
    ASSERT_TRUE(file.is_open()) << GOLDEN_TRACE;
    std::stringstream golden;
    golden << file.rdbuf();
    EXPECT_EQ(golden.str(), text);
}
