/* security_test.cpp - security type, user ID and password, in both families of calls. */
#include "calls.hpp"

namespace
{

class Security : public CallTest
{
};

AnyCall any(auto *function)
{
    return reinterpret_cast<AnyCall>(function);
}

const AnyCall set_type[] = {any(cmscst), any(xcscst)};
const AnyCall set_user[] = {any(cmscsu), any(xcscsu)};
const AnyCall set_password[] = {any(cmscsp), any(xcscsp)};
const AnyCall extract_type[] = {any(cmecst), any(xcecst)};

std::string difference(const CCCB &before, const Id &id)
{
    const u8 *b = reinterpret_cast<const u8 *>(&before);
    const u8 *a = reinterpret_cast<const u8 *>(id.find());
    return scripted::difference(Bytes(b, b + sizeof(CCCB)), Bytes(a, a + sizeof(CCCB)));
}

} // namespace

TEST_F(Security, cmscst_values)
{
    for (AnyCall function : set_type)
    {
        Id id = initialised();
        for (long type : {0L, 1L, 2L, 5L})
        {
            CCCB expected = id.cccb();
            expected.SideInfo.ulSecurityType = static_cast<u32>(type);
            EXPECT_EQ(CM_OK, call_any(function, id, type));
            EXPECT_EQ("", difference(expected, id));
        }
        const CCCB before = id.cccb();
        for (long type : {3L, 4L, 6L, -1L, 0x10001L})
        {
            EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call_any(function, id, type)) << type;
            EXPECT_EQ("", difference(before, id));
        }
    }
}

TEST_F(Security, sets_only_before_allocation)
{
    Id done = allocated();
    Id other = incoming();
    done.cccb().SideInfo.ulSecurityType = 2;
    other.cccb().SideInfo.ulSecurityType = 2;
    const CCCB before = done.cccb();
    for (int family = 0; family < 2; family++)
    {
        for (Id *id : {&done, &other})
        {
            EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(set_type[family], *id, 1));
            EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(set_type[family], *id, 99)) << "state comes first";
            EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(set_user[family], *id, "USER", 4));
            EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(set_password[family], *id, "SECRET", 6));
        }
    }
    EXPECT_EQ("", difference(before, done));
}

TEST_F(Security, cmscsu_stores_the_user_id)
{
    for (AnyCall function : set_user)
    {
        Id id = initialised();
        CCCB expected = id.cccb();
        memcpy(expected.SideInfo.SecurityUserId, ebcdic("User.1", 10).data(), 10);
        expected.SideInfo.usSecurityUserIdLen = 6;
        EXPECT_EQ(CM_OK, call_any(function, id, "User.1", 6));
        EXPECT_EQ("", difference(expected, id));
        EXPECT_EQ(CM_OK, call_any(function, id, "ABCDEFGHIJ", 10));
        EXPECT_EQ(hex(ebcdic("ABCDEFGHIJ")), hex(id.cccb().SideInfo.SecurityUserId, 10));
        EXPECT_EQ(CM_OK, call_any(function, id, "X", 1));
        EXPECT_EQ(hex(ebcdic("X", 10)), hex(id.cccb().SideInfo.SecurityUserId, 10)) << "padded anew";
        EXPECT_EQ(1, id.cccb().SideInfo.usSecurityUserIdLen);
    }
}

TEST_F(Security, cmscsu_by_security_type)
{
    for (AnyCall function : set_user)
    {
        for (u32 type = 0; type <= 6; type++)
        {
            Id id = initialised();
            id.cccb().SideInfo.ulSecurityType = type;
            const bool admitted = type == 1 || type == 2 || type == 5;
            EXPECT_EQ(admitted ? CM_OK : CM_PROGRAM_STATE_CHECK, call_any(function, id, "USER", 4)) << type;
            if (!admitted)
            {
                EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, id, "USER", 99)) << "type before length";
            }
        }
    }
}

TEST_F(Security, cmscsp_by_security_type)
{
    for (AnyCall function : set_password)
    {
        for (u32 type = 0; type <= 6; type++)
        {
            Id id = initialised();
            id.cccb().SideInfo.ulSecurityType = type;
            const bool admitted = type == 2 || type == 5;
            EXPECT_EQ(admitted ? CM_OK : CM_PROGRAM_STATE_CHECK, call_any(function, id, "SECRET", 6)) << type;
        }
    }
}

TEST_F(Security, cmscsp_stores_the_password)
{
    for (AnyCall function : set_password)
    {
        Id id = initialised();
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, id, "SECRET", 6)) << "type same";
        EXPECT_EQ(CM_OK, call(cmscst, id, 2));
        CCCB expected = id.cccb();
        memcpy(expected.SideInfo.SecurityPassword, ebcdic("Secret", 10).data(), 10);
        EXPECT_EQ(CM_OK, call_any(function, id, "Secret", 6));
        EXPECT_EQ("", difference(expected, id));
        EXPECT_EQ(CM_OK, call_any(function, id, "x", 1));
        EXPECT_EQ(hex(ebcdic("x", 10)), hex(id.cccb().SideInfo.SecurityPassword, 10));
    }
}

TEST_F(Security, lengths_outside_1_to_10)
{
    for (int family = 0; family < 2; family++)
    {
        Id id = initialised();
        EXPECT_EQ(CM_OK, call(cmscst, id, 5));
        const CCCB before = id.cccb();
        for (int length : {0, 11, -1, 65537, INT32_MIN})
        {
            EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call_any(set_user[family], id, "ABCDEFGHIJK", length)) << length;
            EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call_any(set_password[family], id, "ABCDEFGHIJK", length)) << length;
        }
        EXPECT_EQ("", difference(before, id));
    }
}

TEST_F(Security, cmecst_in_every_state)
{
    for (AnyCall function : extract_type)
    {
        Out type;
        Id id = initialised();
        EXPECT_EQ(CM_OK, call_any(function, id, type));
        EXPECT_EQ(CM_SECURITY_SAME, type.value());
        Id other = incoming();
        other.cccb().SideInfo.ulSecurityType = 5;
        EXPECT_EQ(CM_OK, call_any(function, other, type));
        EXPECT_EQ(5, type.value());
        Id done = allocated();
        EXPECT_EQ(CM_OK, call_any(function, done, type));
        Id pending = busy();
        EXPECT_EQ(CM_OK, call_any(function, pending, type));
        node.deliver_all();
        node.forget();
    }
}

TEST_F(Security, cmecsu_gives_8_characters_and_the_whole_length)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmscsu, id, "abcdefghij", 10));
    for (AnyCall function : {any(cmecsu), any(xcecsu)})
    {
        Buffer user(10);
        Out length;
        EXPECT_EQ(CM_OK, call_any(function, id, user, length));
        EXPECT_EQ(10, length.value());
        EXPECT_EQ(hex(scripted::bytes("abcdefgh")), hex(user.content(8)));
        EXPECT_TRUE(user.untouched(8));
    }
    Buffer user(10);
    Out length;
    EXPECT_EQ(CM_OK, call(cmesui, id, user, length));
    EXPECT_EQ(10, length.value());
    EXPECT_EQ(hex(scripted::bytes("abcdefghij")), hex(user.content()));
}

TEST_F(Security, user_id_extracts_of_a_short_and_of_the_initial_user_id)
{
    Id id = initialised();
    for (AnyCall function : {any(cmecsu), any(xcecsu), any(cmesui)})
    {
        Buffer user(10);
        Out length;
        EXPECT_EQ(CM_OK, call_any(function, id, user, length));
        EXPECT_EQ(1, length.value()) << "the length of a new conversation is 1";
        EXPECT_EQ(hex(scripted::bytes(" ")), hex(user.content(1)));
        EXPECT_TRUE(user.untouched(1));
    }
    EXPECT_EQ(CM_OK, call(cmscsu, id, "ME", 2));
    EXPECT_EQ(CM_OK, call(cmscst, id, 0)) << "the user ID stays";
    for (AnyCall function : {any(cmecsu), any(xcecsu), any(cmesui)})
    {
        Buffer user(10);
        Out length;
        EXPECT_EQ(CM_OK, call_any(function, id, user, length));
        EXPECT_EQ(2, length.value());
        EXPECT_EQ(hex(scripted::bytes("ME")), hex(user.content(2)));
        EXPECT_TRUE(user.untouched(2));
    }
}

TEST_F(Security, user_id_extracts_on_an_incoming_conversation)
{
    Id id = incoming();
    for (AnyCall function : {any(cmecsu), any(xcecsu), any(cmesui)})
    {
        Buffer user(10);
        Out length;
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, id, user, length));
        EXPECT_TRUE(user.untouched());
        EXPECT_TRUE(length.untouched());
    }
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, succeeds().put(90, ebcdic("USER", 10)));
    EXPECT_EQ(CM_OK, call(cmacci, id));
    Buffer user(10);
    Out length;
    EXPECT_EQ(CM_OK, call(cmesui, id, user, length));
    EXPECT_EQ(4, length.value());
    EXPECT_EQ(hex(scripted::bytes("USER")), hex(user.content(4)));
}
