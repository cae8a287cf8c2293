#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvel::testing {

// What a run of many calls of mixed kinds, in random order, over the modem driver and the
// modem emulator did to one answer phone (on the virtual clock, so hours of calls take seconds).
struct ModemSoakReport {
    int calls = 0;
    int lostMessages = 0;  // a caller spoke and no whole message was kept
    int strayFiles = 0;    // a scratch file left, or a message from a call that left none
    int callLogMisses = 0; // calls.txt did not gain the lines the call should have added
    int notAtRest = 0;     // the line was not back, open and idle, after the call
    std::vector<std::string> failures;
    std::map<std::string, int> kinds;
    long descriptorsAfterFirst = 0, descriptorsAtEnd = 0, descriptorsMost = 0;
};

// Places `calls` calls, every kind once in each round in an order drawn from `seed`, and
// checks after each; `progress` hears each call.
ModemSoakReport modemSoak(int calls, unsigned seed, const std::function<void(int, const std::string&)>& progress);

} // namespace corvel::testing
