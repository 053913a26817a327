// control.hpp - the operator's commands, answered from what the exchange knows. Called by the server in its one thread.
#pragma once

#include "broker/counters.hpp"
#include "broker/exchange.hpp"

#include <string>

namespace broker {

// What a command may ask of the server beside looking.
struct desk
{
    virtual ~desk() = default;
    virtual const exchange &books() const = 0;
    virtual counted_ends counted() const = 0; // what the programs have counted up to now
    virtual wire::control_page &page() = 0;
    virtual void page_switched() = 0; // trace or audit has been switched in the page
    virtual const std::string &directory() const = 0;
    virtual const std::string &config_file() const = 0; // "": the built-in default
    virtual milliseconds uptime() const = 0;
    virtual milliseconds now() const = 0;
    virtual void stop() = 0; // after the answer has gone out
    // Reads the configuration again. True: it holds now, and `kept` says what could not be changed.
    virtual bool reload(config_findings &findings, reload_report &report) = 0;
};

struct control_answer
{
    bool good = true; // else the text says what is wrong
    std::string text;
};

// The answer to one command line, as text for people or as JSON. A program that belongs to neither the broker's user
// nor root only gets to look.
control_answer answer_command(desk &node, const std::string &command, bool json, bool may_change);

// The answer that says why there is none.
control_answer refused_command(const std::string &text, bool json);

// What has been found in a configuration file, as a JSON document.
std::string findings_json(const std::string &file, const config_findings &findings);

} // namespace broker
