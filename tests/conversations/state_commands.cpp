// state_commands.cpp - commands of the test program for the test of every call in every state, on the slots of tp.cpp:
//
//   rts CALL SLOT     a call with a conversation ID, a request-to-send indicator and a return code; the indicator lies
//                     in the slot, so the call may be left waiting
//   windup SLOT HEX   brings the conversation, in whichever state it is, to its end: receives what comes, confirms what
//                     is to be confirmed, and with the turn sends HEX (a whole record) and deallocates. Tells the
//                     records that came, whether HEX went out, and each return code that was not CM_OK
#include "conversations/endurance_commands.hpp"
#include "conversations/endurance_conversation.hpp"

#include <dlfcn.h>
#include <memory>

using namespace endurance;

namespace {

std::string rts_command(const arguments &words)
{
    static std::array<CM_INT32, 16> indicators;
    using call = void(unsigned char *, CM_INT32 *, CM_INT32 *);
    auto wanted = reinterpret_cast<call *>(dlsym(RTLD_DEFAULT, words.at(1).c_str()));
    if (wanted == nullptr)
        return "-2 missing=" + words[1];
    CM_INT32 rc;
    wanted(conversation_of_slot(words.at(2)), &indicators.at(static_cast<std::size_t>(integer(words[2]))), &rc);
    return std::to_string(rc);
}

class winding_up
{
public:
    winding_up(const unsigned char *id, const std::string &word) : c_(std::make_unique<conversation>())
    {
        std::memcpy(c_->id.data(), id, CM_CID_SIZE);
        for (std::size_t i = 0; i < word.size() / 2; ++i)
            c_->sent[i] = static_cast<unsigned char>(std::stoi(word.substr(2 * i, 2), nullptr, 16));
        length_ = static_cast<CM_INT32>(word.size() / 2);
    }

    std::string run()
    {
        for (int steps = 0; steps < 100; ++steps)
        {
            CM_INT32 state = -1, rc;
            cmecs(c_->id.data(), &state, &rc);
            if (rc == CM_OK && steps == 0)
            {
                c_->set(cmspm, CM_BLOCKING);
                c_->set(cmsrt, CM_RECEIVE_AND_WAIT);
                c_->set(cmsst, CM_BUFFER_DATA);
                c_->set(cmsdt, CM_DEALLOCATE_SYNC_LEVEL);
            }
            if (rc != CM_OK)
                return "0 got=" + got_ + " sent=" + std::to_string(sent_) + " codes=" + codes_;
            step(state);
        }
        return "-7 no-end codes=" + codes_;
    }

private:
    void step(CM_INT32 state)
    {
        switch (state)
        {
        case CM_SEND_STATE:
        case CM_SEND_PENDING_STATE:
            // The flush learns first whether the partner has made all this void.
            if (noted(c_->plain(cmflus)) && noted(c_->send(length_)))
            {
                ++sent_;
                if (noted(c_->plain(cmflus)))
                    noted(c_->plain(cmdeal));
            }
            break;
        case CM_RECEIVE_STATE:
            if (noted(c_->receive()) && c_->data != CM_NO_DATA_RECEIVED)
                take();
            break;
        default:
            noted(c_->plain(cmcfmd));
        }
    }

    bool noted(CM_INT32 rc)
    {
        if (rc != CM_OK)
            codes_ += std::to_string(rc) + ",";
        return rc == CM_OK;
    }

    void take()
    {
        char digits[3];
        for (std::size_t i = 0; i < static_cast<std::size_t>(c_->received); ++i)
        {
            std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(c_->got[i]));
            got_ += digits;
        }
        got_ += c_->data == CM_INCOMPLETE_DATA_RECEIVED ? "+" : ",";
    }

    std::unique_ptr<conversation> c_;
    CM_INT32 length_;
    std::string got_, codes_;
    int sent_ = 0;
};

} // namespace

bool state_command(const std::vector<std::string> &words, std::string &answer)
{
    if (words.at(0) == "rts")
        answer = rts_command(words);
    else if (words.at(0) == "windup")
        answer = winding_up(conversation_of_slot(words.at(1)), words.at(2)).run();
    else
        return false;
    return true;
}
