// uppercase.cpp - the upper-case entry points: one for each row of the table of calls, with the arguments of its
// lower-case twin, which it calls and nothing else.
#include "core/core.hpp"

namespace {

// The type of argument N of a call.
template <unsigned N, typename First, typename... Rest>
struct nth
{
    using type = typename nth<N - 1, Rest...>::type;
};

template <typename First, typename... Rest>
struct nth<0, First, Rest...>
{
    using type = First;
};

template <unsigned N, typename Call>
struct argument;

template <unsigned N, typename... Arguments>
struct argument<N, void(Arguments...)>
{
    using type = typename nth<N, Arguments...>::type;
};

} // namespace

#define ARG(call, n) argument<n, decltype(call)>::type a##n

#define PARAMETERS_2(call) ARG(call, 0), ARG(call, 1)
#define PARAMETERS_3(call) PARAMETERS_2(call), ARG(call, 2)
#define PARAMETERS_4(call) PARAMETERS_3(call), ARG(call, 3)
#define PARAMETERS_5(call) PARAMETERS_4(call), ARG(call, 4)
#define PARAMETERS_8(call) PARAMETERS_5(call), ARG(call, 5), ARG(call, 6), ARG(call, 7)
#define PASS_2 a0, a1
#define PASS_3 PASS_2, a2
#define PASS_4 PASS_3, a3
#define PASS_5 PASS_4, a4
#define PASS_8 PASS_5, a5, a6, a7

#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail)                                                      \
    void UPPER(PARAMETERS_##arguments(lower))                                                                          \
    {                                                                                                                  \
        lower(PASS_##arguments);                                                                                       \
    }
#include "core/calls.def"
#undef CPIC_CALL
