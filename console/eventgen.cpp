// eventgen: pushes monitoring events (JSON text) into the console's event queue of the
// installation it runs from, for demonstrations and tests of the live event page.
#include <unistd.h>

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "bsapi/bsapi.h"

namespace {

const char* const kUsage =
    "usage: eventgen [--company C] [--host H] [--severity S] [--message M]\n"
    "                [--count N] [--interval-ms MS] [--port P]\n"
    "Pushes N events (default 1) into the queue \"consoleevents\" on 127.0.0.1 (default port\n"
    "8123) of the installation this binary sits in; the console's live event page shows them.\n"
    "When --count is above 1, the message gets \" #i\" appended. Exit status 0 when all were\n"
    "pushed, 1 when the queue refused, 2 for bad arguments.\n";

std::string NowText() {
    time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &local);
    return buf;
}

bool ParseCount(const char* text, long max, long& out) {
    char* end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || v < 0 || v > max)
        return false;
    out = v;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::string company = "demo", host = "host-01", severity = "warning";
    std::string message = "CPU load above 90%";
    long count = 1, intervalMs = 0, port = 8123;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "eventgen: %s needs a value\n%s", a.c_str(), kUsage);
            return 2;
        }
        const char* v = argv[++i];
        bool ok = true;
        if (a == "--company")
            company = v;
        else if (a == "--host")
            host = v;
        else if (a == "--severity")
            severity = v;
        else if (a == "--message")
            message = v;
        else if (a == "--count")
            ok = ParseCount(v, 1000000, count) && count > 0;
        else if (a == "--interval-ms")
            ok = ParseCount(v, 3600000, intervalMs);
        else if (a == "--port")
            ok = ParseCount(v, 65535, port);
        else
            ok = false;
        if (!ok) {
            std::fprintf(stderr, "eventgen: bad argument %s %s\n%s", a.c_str(), v, kUsage);
            return 2;
        }
    }

    void* queue = BS_INVALID_HANDLE;
    // Mode 2 creates the queue when the console has not opened it yet.
    int rc = bs_mq_open(queue, "consoleevents", "", 2, 0, "127.0.0.1",
                        static_cast<unsigned short>(port));
    if (rc != 0) {
        std::fprintf(stderr, "eventgen: cannot open the event queue: %s (%d)\n", bs_result_text(rc),
                     rc);
        return 1;
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    for (long i = 1; i <= count; ++i) {
        Json::Value event(Json::objectValue);
        event["time"] = NowText();
        event["company"] = company;
        event["host"] = host;
        event["severity"] = severity;
        event["message"] = count > 1 ? message + " #" + std::to_string(i) : message;
        unsigned long long id = 0;
        rc =
            bs_mq_push(queue, tarn::VariableData(Json::writeString(writer, event)), "event", id, 0);
        if (rc != 0) {
            std::fprintf(stderr, "eventgen: push refused: %s (%d)\n", bs_result_text(rc), rc);
            bs_close_handle(queue);
            return 1;
        }
        if (intervalMs > 0 && i < count)
            usleep(static_cast<useconds_t>(intervalMs) * 1000);
    }
    bs_close_handle(queue);
    std::printf("eventgen: %ld event%s pushed\n", count, count == 1 ? "" : "s");
    return 0;
}
