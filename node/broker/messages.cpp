// messages.cpp - what each message of a program asks of the exchange, and its answer. Every message has passed
// wire::message_check() before its fields are looked at; a message at the wrong time ends its connection.
#include "broker/exchange.hpp"
#include "broker/names.hpp"

#include <algorithm>
#include <cstring>
#include <functional>

namespace broker {

namespace {

constexpr std::size_t max_names_of_program = 4096; // TP names that one program may have
constexpr std::size_t max_names_of_user = 100'000; // of all its programs
constexpr std::size_t max_names_ever = 100'000;    // names remembered after their program has gone
constexpr std::uint32_t max_names_ever_of_user = 20'000;
// Names that the waiting accepts of one process, or of all of a user, list in all.
constexpr std::size_t max_awaited_of_process = 100'000;
constexpr std::size_t max_awaited_of_user = 400'000;

template <class Message>
Message decode(std::span<const std::byte> bytes)
{
    Message message;
    std::memcpy(&message, bytes.data(), sizeof message);
    return message;
}

bool all_zero(std::span<const std::uint8_t> field)
{
    return std::all_of(field.begin(), field.end(), [](std::uint8_t b) { return b == 0; });
}

} // namespace

void exchange::message(connection_id id, std::span<const std::byte> bytes, milliseconds now)
{
    auto found = connections_.find(id);
    if (found == connections_.end())
    {
        return;
    }
    connection &from = found->second;
    if (!wire::message_check(bytes.data(), bytes.size(), wire::sender::program))
    {
        world_.close_connection(id, "it has sent a message that is none");
        return;
    }
    auto head = decode<wire::message_head>(bytes);
    auto kind = static_cast<wire::message_kind>(head.kind);
    if (from.greeted != (kind != wire::message_kind::hello) || from.requests.contains(head.correlation))
    {
        world_.close_connection(id, "it has sent a message at the wrong time");
        return;
    }
    switch (kind)
    {
    case wire::message_kind::hello:
        on_hello(from, decode<wire::hello>(bytes));
        break;
    case wire::message_kind::find_lu:
        on_find_lu(from, decode<wire::find_lu>(bytes));
        break;
    case wire::message_kind::add_name:
        on_add_name(from, decode<wire::name_change>(bytes));
        break;
    case wire::message_kind::remove_name:
        on_remove_name(from, decode<wire::name_change>(bytes));
        break;
    case wire::message_kind::allocate:
    {
        auto wanted = decode<wire::allocate>(bytes);
        on_allocate(from, wanted, now);
        explicit_bzero(wanted.password, sizeof wanted.password);
        break;
    }
    case wire::message_kind::accept:
        on_accept(from, decode<wire::accept>(bytes), bytes.subspan(sizeof(wire::accept)), now);
        break;
    case wire::message_kind::cancel:
        on_cancel(from, decode<wire::cancel>(bytes));
        break;
    case wire::message_kind::ended:
        on_ended(from, decode<wire::ended>(bytes), now);
        break;
    case wire::message_kind::query_side_info:
        on_query_side_info(from, decode<wire::query_side_info>(bytes));
        break;
    case wire::message_kind::control:
    {
        auto command = decode<wire::control>(bytes);
        from.operates = true;
        world_.control(id, head.correlation, command.json == 1,
                       std::string(reinterpret_cast<const char *>(bytes.data()) + sizeof command,
                                   command.text_length));
        break;
    }
    case wire::message_kind::record:
    {
        auto part = decode<wire::record>(bytes);
        if (part.file == 0 || part.file > wire::node_file_kinds)
        {
            world_.close_connection(id, "it has sent a record for a file that is none");
            return;
        }
        world_.record(id, static_cast<wire::node_file_kind>(part.file), part.begins == 1, part.more == 1,
                      std::string_view(reinterpret_cast<const char *>(bytes.data()) + sizeof part, part.text_length));
        break;
    }
    default: // message_check() lets only a program's kinds through
        break;
    }
}

void exchange::reply_done(connection_id to, std::uint32_t correlation, std::uint32_t primary, std::uint32_t secondary)
{
    wire::done answer{};
    answer.status = {primary, secondary};
    reply(to, answer, wire::message_kind::done, correlation);
}

void exchange::answer_allocation(connection_id to, std::uint32_t correlation, std::uint32_t primary,
                                 std::uint32_t secondary)
{
    wire::allocated answer{};
    answer.status = {primary, secondary};
    reply(to, answer, wire::message_kind::allocated, correlation);
}

void exchange::answer_accept(connection_id to, std::uint32_t correlation, std::uint32_t primary,
                             std::uint32_t secondary)
{
    wire::accepted answer{};
    answer.status = {primary, secondary};
    reply(to, answer, wire::message_kind::accepted, correlation);
}

void exchange::on_hello(connection &from, const wire::hello &message)
{
    wire::welcome answer{};
    answer.version = wire::protocol_version;
    answer.connection = from.id;
    answer.broker_pid = broker_pid_;
    to_ascii(answer.default_alias, config_.lus.front().alias);
    if (message.version != wire::protocol_version)
    {
        answer.status = {wire::rc_comm_subsystem_not_loaded, 0};
        reply(from.id, answer, wire::message_kind::welcome, message.head.correlation);
        world_.close_connection(from.id, "it speaks another version");
        return;
    }
    timers_.erase({from.since + greeting_time, alarm::greeting, from.id, 0});
    from.greeted = true;
    std::span<const std::uint8_t> program(reinterpret_cast<const std::uint8_t *>(message.program),
                                          sizeof message.program);
    from.program = from_ascii(program);
    std::replace(from.program.begin(), from.program.end(), '\x1A', '?');
    reply(from.id, answer, wire::message_kind::welcome, message.head.correlation, handover::control_page);
}

const lu_entry *exchange::local_lu(std::span<const std::uint8_t> alias) const
{
    return all_zero(alias) ? &config_.lus.front() : config_.find_lu(from_ascii(alias));
}

void exchange::on_find_lu(connection &from, const wire::find_lu &message)
{
    wire::lu_found answer{};
    const lu_entry *lu = local_lu(message.alias);
    if (lu == nullptr)
    {
        answer.status = {wire::rc_parameter_check, wire::rc_bad_lu_alias};
    }
    else
    {
        to_ascii(answer.alias, lu->alias);
        to_ebcdic(answer.fq_name, lu->name);
    }
    reply(from.id, answer, wire::message_kind::lu_found, message.head.correlation);
}

void exchange::on_add_name(connection &from, const wire::name_change &message)
{
    std::string name = tp_name_bytes(message.tp_name);
    if (tp_name_blank(name))
    {
        reply_done(from.id, message.head.correlation, wire::rc_parameter_check, wire::rc_bad_tp_name);
        return;
    }
    if (!from.names.contains(name))
    {
        if (from.names.size() >= max_names_of_program || usage_of_user(from.who).names >= max_names_of_user)
        {
            reply_done(from.id, message.head.correlation, wire::rc_unexpected_system_error);
            return;
        }
        from.names.insert(name);
        count(from.who, &usage::names, 1);
        names_[name].insert(from.id);
        std::uint32_t &brought = names_ever_of_user_[from.who.uid];
        if (names_ever_.size() < max_names_ever && brought < max_names_ever_of_user && names_ever_.insert(name).second)
        {
            ++brought;
        }
    }
    reply_done(from.id, message.head.correlation, wire::rc_ok);
}

void exchange::on_remove_name(connection &from, const wire::name_change &message)
{
    std::string name = tp_name_bytes(message.tp_name);
    auto own = from.names.find(name);
    if (own == from.names.end())
    {
        reply_done(from.id, message.head.correlation, wire::rc_parameter_check, wire::rc_bad_tp_name);
        return;
    }
    // Accepts that wait for this name wait for the rest of theirs; one without a rest would wait for ever.
    std::vector<std::uint32_t> without_a_name;
    auto waiters = accepts_by_name_.find(name);
    if (waiters != accepts_by_name_.end())
    {
        for (auto order = waiters->second.begin(); order != waiters->second.end();)
        {
            const waiting &waiter = accepts_.at(*order);
            if (waiter.connection != from.id)
            {
                ++order;
                continue;
            }
            request &r = from.requests.at(waiter.correlation);
            std::erase(r.tp_names, &*own);
            count(from.who, &usage::awaited, -1);
            if (r.tp_names.empty())
            {
                without_a_name.push_back(waiter.correlation);
            }
            order = waiters->second.erase(order);
        }
        if (waiters->second.empty())
        {
            accepts_by_name_.erase(waiters);
        }
    }
    for (std::uint32_t correlation : without_a_name)
    {
        forget_request(from, correlation);
        answer_accept(from.id, correlation, wire::rc_parameter_check, wire::rc_bad_tp_name);
    }
    forget_name(from, name);
    reply_done(from.id, message.head.correlation, wire::rc_ok);
}

void exchange::on_allocate(connection &from, const wire::allocate &message, milliseconds now)
{
    auto refuse_with = [&](std::uint32_t secondary) {
        answer_allocation(from.id, message.head.correlation, wire::rc_parameter_check, secondary);
    };
    if (message.conv_type > 1)
    {
        return refuse_with(wire::rc_bad_conv_type);
    }
    if (message.sync_level > 1)
    {
        return refuse_with(wire::rc_bad_sync_level);
    }
    if (message.return_control > 1)
    {
        return refuse_with(wire::rc_bad_return_control);
    }
    if (message.security > 2 && message.security != 5)
    {
        return refuse_with(wire::rc_bad_security);
    }
    if (tp_name_blank(tp_name_bytes(message.tp_name)))
    {
        return refuse_with(wire::rc_bad_tp_name);
    }
    const lu_entry *local = local_lu(message.local_alias);
    if (local == nullptr)
    {
        return refuse_with(wire::rc_bad_lu_alias);
    }
    const lu_entry *partner = config_.find_partner(message.partner_alias[0] != 0 ? from_ascii(message.partner_alias)
                                                                                : from_ebcdic(message.partner_fq_name));
    if (partner == nullptr)
    {
        return refuse_with(wire::rc_bad_partner_lu);
    }
    std::string mode = from_ebcdic(message.mode);
    if (config_.find_mode(mode) == nullptr)
    {
        return refuse_with(wire::rc_bad_mode);
    }
    route way{local->alias, partner->alias, mode};
    if (!attach_quota_left(from.who) || !conversation_quota_left(from.who))
    {
        answer_allocation(from.id, message.head.correlation, wire::rc_allocation_error,
                          wire::rc_allocation_failure_retry);
    }
    else if (session_free(way) && !allocations_.contains(sessions_of(way)))
    {
        grant(from, message, way, now);
    }
    else if (message.return_control == 1)
    {
        answer_allocation(from.id, message.head.correlation, wire::rc_unsuccessful);
    }
    else
    {
        request &r = from.requests[message.head.correlation];
        r.correlation = message.head.correlation;
        r.order = ++last_order_;
        r.deadline = now + config_.allocation_wait_ms;
        r.way = way;
        r.wanted = message;
        count(from.who, &usage::conversations, 1);
        allocations_[sessions_of(way)][r.order] = {from.id, r.correlation};
        timers_.insert({r.deadline, alarm::allocation, from.id, r.correlation});
    }
}

void exchange::on_accept(connection &from, const wire::accept &message, std::span<const std::byte> names,
                         milliseconds now)
{
    request r;
    r.accepts = true;
    r.correlation = message.head.correlation;
    for (std::uint32_t i = 0; i < message.count; ++i)
    {
        std::string name(reinterpret_cast<const char *>(names.data()) + i * wire::tp_name_size, wire::tp_name_size);
        // A name that the program does not have is passed over: another of its threads may just have released it.
        auto own = from.names.find(name);
        if (own != from.names.end())
        {
            r.tp_names.push_back(&*own);
        }
    }
    if (r.tp_names.empty())
    {
        answer_accept(from.id, r.correlation, wire::rc_parameter_check, wire::rc_bad_tp_name);
        return;
    }
    std::sort(r.tp_names.begin(), r.tp_names.end(), std::less<>());
    r.tp_names.erase(std::unique(r.tp_names.begin(), r.tp_names.end()), r.tp_names.end());
    if (!conversation_quota_left(from.who) ||
        usage_of_process(from.who).awaited + r.tp_names.size() > max_awaited_of_process ||
        usage_of_user(from.who).awaited + r.tp_names.size() > max_awaited_of_user)
    {
        answer_accept(from.id, r.correlation, wire::rc_unexpected_system_error);
        return;
    }
    // The oldest attach among all the names.
    std::map<std::uint64_t, session_id>::iterator oldest;
    bool found = false;
    for (const std::string *name : r.tp_names)
    {
        auto queue = queues_.find(*name);
        if (queue != queues_.end() && (!found || queue->second.waiting.begin()->first < oldest->first))
        {
            oldest = queue->second.waiting.begin();
            found = true;
        }
    }
    if (found)
    {
        connect(sessions_.at(oldest->second), from, r.correlation, now);
        return;
    }
    r.order = ++last_order_;
    accepts_[r.order] = {from.id, r.correlation};
    for (const std::string *name : r.tp_names)
    {
        accepts_by_name_[*name].insert(r.order);
    }
    count(from.who, &usage::conversations, 1);
    count(from.who, &usage::awaited, static_cast<std::int64_t>(r.tp_names.size()));
    from.requests[r.correlation] = std::move(r);
}

void exchange::on_cancel(connection &from, const wire::cancel &message)
{
    // A request that has been answered already is no mistake: answer and cancel have crossed.
    auto found = from.requests.find(message.target);
    if (found != from.requests.end())
    {
        bool accepts = found->second.accepts;
        forget_request(from, message.target);
        if (accepts)
        {
            answer_accept(from.id, message.target, wire::rc_cancelled);
        }
        else
        {
            answer_allocation(from.id, message.target, wire::rc_cancelled);
        }
    }
    reply_done(from.id, message.head.correlation, wire::rc_ok);
}

void exchange::on_ended(connection &from, const wire::ended &message, milliseconds now)
{
    auto found = sessions_.find(message.session);
    if (found == sessions_.end())
    {
        return; // over already, or never there
    }
    // A program that talks to itself has both ends, and says so twice.
    session &s = found->second;
    if (s.allocator == from.id)
    {
        end_is_done(s, true, now);
    }
    else if (s.acceptor == from.id)
    {
        end_is_done(s, false, now);
    }
}

void exchange::on_query_side_info(connection &from, const wire::query_side_info &message)
{
    wire::side_info answer{};
    const side_info_entry *entry = config_.find_side_info(from_ascii(message.sym_dest_name));
    if (entry == nullptr)
    {
        answer.status = {wire::rc_state_check, wire::rc_unknown_symbolic_destination};
    }
    else
    {
        // The node operator verb's record: text in ASCII padded with blanks, an alias that is not set all zero.
        auto field = [&](std::size_t offset, std::size_t size) {
            return std::span<std::uint8_t>(answer.record + offset, size);
        };
        auto number = [&](std::size_t offset, std::uint32_t value) {
            std::memcpy(answer.record + offset, &value, sizeof value);
        };
        to_ascii(field(2, 8), entry->destination);
        to_ascii(field(60, 17), entry->partner_lu);
        number(80, entry->service_tp ? 1 : 0);
        to_ascii(field(84, 64), entry->tp_name);
        to_ascii(field(148, 8), entry->mode);
        number(156, entry->security);
        to_ascii(field(160, 10), entry->user);
        if (from.who.owner) // its passwords are not for others
        {
            to_ascii(field(170, 10), entry->password);
        }
        else
        {
            to_ascii(field(170, 10), "");
        }
        if (!entry->local_lu.empty())
        {
            to_ascii(field(180, 8), entry->local_lu);
        }
    }
    reply(from.id, answer, wire::message_kind::side_info, message.head.correlation);
    explicit_bzero(answer.record, sizeof answer.record);
}

} // namespace broker
