// A SIP account against a real registrar and proxy, Kamailio (Debian's kamailio package) with
// the test tree's configuration: Corvel registers with digest authentication, registers again
// before its registration runs out, takes a call the proxy routes to it, and after the
// registrar has been away for 30 s is registered again within a minute and takes the next call.

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sip_call_harness.h"

namespace corvel::e2e {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Kamailio on a loopback port of its own, logging to a file in the test's folder.
class Kamailio {
public:
    explicit Kamailio(const fs::path& folder) : folder_(folder), port_(freePort()) {}

    void start()
    {
        const std::string address = "127.0.0.1:" + std::to_string(port_);
        log_ = folder_ / ("kamailio-" + std::to_string(++starts_) + ".log");
        process_ = std::make_unique<Process>(
            std::vector<std::string>{findProgram("kamailio").value_or("kamailio").string(), "-f", CORVEL_KAMAILIO_CONFIG,
                                     "-DD", "-E", "-n", "1", "-Y", folder_.string(), "-l", "udp:" + address, "-l",
                                     "tcp:" + address},
            std::map<std::string, std::string>{}, log_, folder_);
    }
    void stop() { process_.reset(); }

    // The REGISTER requests it has accepted since it last started.
    int registrations() const
    {
        const std::string text = readText(log_);
        int count = 0;
        for (auto at = text.find("REGISTER of"); at != std::string::npos; at = text.find("REGISTER of", at + 1)) ++count;
        return count;
    }
    std::string log() const { return readText(log_); }
    int port() const { return port_; }

private:
    fs::path folder_;
    int port_;
    int starts_ = 0;
    fs::path log_;
    std::unique_ptr<Process> process_;
};

class SipRegistrarTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!findProgram("sipp")) GTEST_SKIP() << "SIPp is not installed (Debian package sip-tester)";
        if (!findProgram("kamailio")) GTEST_SKIP() << "Kamailio is not installed (Debian package kamailio)";
        registrar.start();
        corvel.set("sip", "account", account);
        corvel.set("sip", "password", "s3cret");
        corvel.set("sip", "ringinterval", "300");
    }

    // A caller whom the proxy puts through to Corvel, announced and logged; they hang up
    // before it answers.
    void callThroughTheProxy(const std::string& number)
    {
        Sipp caller(corvel);
        caller.via(registrar.port());
        caller.fill("from", "<sip:" + number + "@127.0.0.1>");
        caller.fill("headers", "");
        caller.fill("ring_for", "800");
        const SippResult result = caller.run("cancelled_call.xml", 20s);
        EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log() << registrar.log();
    }

    Corvel corvel;
    Kamailio registrar{corvel.root()};
    const std::string account = "sip:corvel@127.0.0.1:" + std::to_string(registrar.port());
};

TEST_F(SipRegistrarTest, RegistersTakesCallsThroughTheProxyAndComesBackAfterAnOutage)
{
    ASSERT_TRUE(corvel.start("SIP account " + account)) << corvel.log() << registrar.log();
    ASSERT_TRUE(corvel.waitForLog(account + " is registered", 10s)) << corvel.log() << registrar.log();
    // The registrar grants 20 s at most: Corvel must ask again before they run out.
    EXPECT_TRUE(eventually([&] { return registrar.registrations() >= 2; }, 25s)) << registrar.log();

    callThroughTheProxy("0301234");
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("0301234, on ")));

    registrar.stop();
    std::this_thread::sleep_for(30s);
    registrar.start();
    EXPECT_TRUE(eventually([&] { return registrar.registrations() >= 1; }, 60s)) << corvel.log() << registrar.log();

    callThroughTheProxy("0305678");
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("0301234, on "), StartsWith("0305678, on ")));
    EXPECT_TRUE(corvel.running()) << corvel.log();
}

} // namespace
} // namespace corvel::e2e
