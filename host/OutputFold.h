// OutputFold: webharbour's standard output, folded. The library prints some lines on standard
// output for every request of a kind (a refused parameter, a failed body parse); a day of such
// traffic would leave gigabytes of one line. Standard output is captured into a pipe before any
// shared library runs, and a reader thread passes each line on the first time it comes in an
// interval and counts its repeats; at the end of the interval each repeated line is written
// once more with its count:
//
//     <line> [+N more in S s]
//
// Lines keep the library's own words; only repeats are folded. At most kMaxDistinct different
// lines are counted per interval; more pass through unfolded.
#pragma once

#include <map>
#include <string>

namespace wh {

// Folding of a stream of text into lines (no threads, no files): the rule above as a class,
// so that it can be tested alone. Output goes to `Sink`.
class LineFolder {
public:
    typedef void (*Sink)(void* context, const std::string& text);
    LineFolder(Sink sink, void* context) : m_sink(sink), m_context(context) {}

    // Takes bytes as they come; whole lines are folded, a partial line waits for its end (or is
    // passed on as a line once it exceeds kMaxLine).
    void Feed(const char* data, size_t length);
    // Ends the interval of `seconds`: writes every repeated line with its count and forgets
    // the interval's lines.
    void EndInterval(int seconds);
    // At the end of the stream: the partial line, then EndInterval.
    void Finish(int seconds);

    static const size_t kMaxDistinct = 1024;
    static const size_t kMaxLine = 65536;

private:
    void Line(const std::string& line);

    Sink m_sink;
    void* m_context;
    std::string m_strPartial;
    std::map<std::string, unsigned long long> m_mapSeen;  // line -> repeats this interval
};

// Starts the reader thread on the captured output (a no-op when the capture could not be set up
// before start). Lines go to the original standard output; intervals last `seconds`.
void StartOutputFold(int seconds);
// Changes the interval (after the settings were read).
void SetOutputFoldSeconds(int seconds);
// Flushes standard output, ends the capture and waits until every captured line has been
// written, counts included. Safe to call more than once.
void StopOutputFold();

}  // namespace wh
