// config_rules.hpp - what the texts of a configuration may be. Pure functions; used by the reader of the file.
#pragma once

#include <functional>
#include <string>

namespace broker {

// What a text value may be; `what` completes the sentence "expected ...".
struct text_rule
{
    const char *what;
    std::function<bool(const std::string &)> holds;
};

extern const text_rule alias_rule;
extern const text_rule lu_name_rule;
extern const text_rule partner_rule;
extern const text_rule mode_rule;
extern const text_rule user_rule;
extern const text_rule password_rule;
extern const text_rule hash_rule;
extern const text_rule path_rule;
extern const text_rule system_user_rule;
extern const text_rule any_text_rule;
extern const text_rule application_tp_rule;
extern const text_rule service_tp_rule;

} // namespace broker
