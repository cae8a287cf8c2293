#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sip_call_harness.h"

namespace corvel::e2e {

// What a run of many SIPp calls of mixed kinds, in random order, did to one headless Corvel.
struct SoakReport {
    int calls = 0;
    bool corvelAlive = true;
    int lostMessages = 0;      // a caller spoke and no message, or not all they said, was kept
    int strayFiles = 0;        // recordings left half-done, messages nobody left
    int callLogMisses = 0;     // calls.txt did not gain the lines the call should have added
    int callerFailures = 0;    // SIPp saw the call go otherwise than its scenario says
    std::vector<std::string> failures; // what went wrong, call by call
    std::map<std::string, int> kinds;  // how many calls of each kind
    long descriptorsAfterFirst = 0, descriptorsAtEnd = 0, descriptorsMost = 0;
    long residentKbAfter50 = 0, residentKbAtEnd = 0;
    double cpuMillisecondsPerCall = 0;
};

// Settings the soak's calls are written for: withheld callers answered on the first ring,
// delivered numbers too, a trusted caller left to ring, short prompts. Before start().
void prepareForSoak(Corvel& corvel);

// Places `calls` calls of the kinds below in an order drawn from `seed`, checking after each
// that calls.txt gained its lines, that a message left is a whole WAV that libsndfile opens
// holding all the caller said (to 100 ms), that no recording is left half-done and that Corvel
// still runs; `progress` hears each call.
SoakReport soak(Corvel& corvel, int calls, unsigned seed, const std::function<void(int, const std::string&)>& progress);

} // namespace corvel::e2e
