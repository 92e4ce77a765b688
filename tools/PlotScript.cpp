#include "PlotScript.h"

#include "Answer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>

namespace {

constexpr std::size_t drawnMax = 20000;  // points; more make files that viewers choke on
constexpr double shortestMs = 0.001;     // a logarithm needs something
constexpr double shortestRunS = 0.000001;
constexpr double binsMax = 48;
constexpr double headroom = 1.1;  // above the highest
constexpr std::size_t intervalsMax = 100;
constexpr std::size_t transfersPerInterval = 8;  // with fewer, steps show the frames and not the rate

std::string number(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.9g", value);
    return text.data();
}

// For people.
std::string rounded(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3g", value);
    return text.data();
}

// A string of gnuplot in which nothing is substituted.
std::string quoted(const std::string& text)
{
    // Whole UTF-8 only: what a picture in XML may hold.
    const std::string clean = Json::parse(jsonLine(Json(text))).get<std::string>();
    std::string quotedText = "'";
    for (const char c : clean) {
        const auto byte = static_cast<unsigned char>(c);
        quotedText += byte < 0x20 || byte == 0x7F ? '?' : c;
        if (c == '\'')
            quotedText += c;
    }
    return quotedText + "'";
}

using Transfers = std::vector<TimedTransfer>;

// A block of data named $name with one line for each row.
template <class Rows, class Line>
std::string dataBlock(const char* name, const Rows& rows, const Line& line)
{
    std::string block = std::string("$") + name + " << END\n";
    for (const auto& row : rows)
        block += line(row);
    return block + "END\n";
}

Transfers drawnOf(const Transfers& all)
{
    if (all.size() <= drawnMax)
        return all;
    constexpr std::size_t moments = drawnMax / 2;
    Transfers drawn;
    for (std::size_t i = 0; i < moments; ++i) {
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(all.size() * i / moments);
        const auto end = all.begin() + static_cast<std::ptrdiff_t>(all.size() * (i + 1) / moments);
        const auto [fastest, slowest] = std::minmax_element(
            begin, end, [](const auto& a, const auto& b) { return a.latencyMs < b.latencyMs; });
        drawn.push_back(*fastest);
        drawn.push_back(*slowest);
    }
    return drawn;
}

double decadeBelow(double value) { return std::pow(10, std::floor(std::log10(value))); }
double decadeAbove(double value) { return std::pow(10, std::ceil(std::log10(value))); }

struct Range
{
    double low = 0;
    double high = 0;
};

// Of the axis of latencies: whole decades, the deadlines among them.
Range latencyRange(const Transfers& transfers)
{
    Range range{1e300, 0};
    for (const TimedTransfer& transfer : transfers) {
        range.low = std::min(range.low, transfer.latencyMs);
        range.high = std::max({range.high, transfer.latencyMs, transfer.allowedMs.value_or(0)});
        if (transfer.allowedMs.value_or(0) > 0)
            range.low = std::min(range.low, *transfer.allowedMs);
    }
    if (transfers.empty())
        return {1, 10};
    range.low = decadeBelow(std::max(range.low, shortestMs));
    range.high = decadeAbove(std::max(range.high, shortestMs));
    if (range.high <= range.low)
        range.high = range.low * 10;
    return range;
}

double lengthOf(const Transfers& transfers)
{
    double end = shortestRunS;
    for (const TimedTransfer& transfer : transfers)
        end = std::max(end, transfer.endS());
    return end;
}

// Above the left end of a panel: the right end belongs to the key.
std::string heading(const std::string& text)
{
    return "set label 1 " + quoted(text) + " at graph 0, graph 1.07 left font ',12'\n";
}

std::string timeAxis(double lengthS)
{
    return "unset logscale\nset xtics autofreq\nset xrange [0:" + number(lengthS) +
           "]\nset xlabel 'time since the start (s)'\n";
}

// Curves of a panel; one that shows nothing keeps its frame.
std::string plotCommand(const std::vector<std::string>& curves)
{
    std::string command = "plot ";
    for (const std::string& curve : curves)
        command += (&curve == curves.data() ? "" : ", ") + curve;
    return command + (curves.empty() ? "NaN notitle\n" : "\n");
}

std::string latencyPanel(const Transfers& transfers, double lengthS)
{
    const Transfers drawn = drawnOf(transfers);
    const Range range = latencyRange(transfers);
    const auto lateCount =
        std::count_if(transfers.begin(), transfers.end(), std::mem_fn(&TimedTransfer::isLate));
    const bool hasDeadline = std::any_of(transfers.begin(), transfers.end(),
                                         [](const auto& transfer) { return transfer.allowedMs.has_value(); });
    const auto points = [](bool late) {
        return [late](const TimedTransfer& transfer) {
            return transfer.isLate() != late ? std::string()
                                             : number(transfer.startS) + ' ' +
                                                   number(std::max(transfer.latencyMs, shortestMs)) + '\n';
        };
    };
    // A request that was asked for after it was due is late at once; its deadline lies below the axis.
    const auto deadline = [&range](const TimedTransfer& transfer) {
        return transfer.allowedMs
                   ? number(transfer.startS) + ' ' + number(std::max(*transfer.allowedMs, range.low)) + '\n'
                   : std::string();
    };
    std::string script = dataBlock("points", drawn, points(false)) + dataBlock("late", drawn, points(true)) +
                         dataBlock("deadline", drawn, deadline);
    std::string title = "Latency of each request";
    if (drawn.size() < transfers.size())
        title = "Latency: the fastest and the slowest request of each moment, " +
                std::to_string(drawn.size()) + " of " + std::to_string(transfers.size());
    script += heading(title) + timeAxis(lengthS) + "set ylabel 'latency (ms)'\n" +
              "set logscale y\nset yrange [" + number(range.low) + ':' + number(range.high) + "]\n";
    const std::size_t onTime = transfers.size() - static_cast<std::size_t>(lateCount);
    const std::string size = drawn.size() > 2000 ? "0.3" : "0.5";
    std::vector<std::string> curves;
    if (onTime > 0)
        curves.push_back("$points using 1:2 with points pt 7 ps " + size + " lc rgb '#1f6fb4' title '" +
                         std::to_string(onTime) + (hasDeadline ? " on time'" : " requests'"));
    if (lateCount > 0)
        curves.push_back("$late using 1:2 with points pt 7 ps 0.6 lc rgb '#c8102e' title '" +
                         std::to_string(lateCount) + " late'");
    if (hasDeadline)
        curves.emplace_back("$deadline using 1:2 with lines lw 2 lc rgb '#e07b00' title 'deadline'");
    return script + plotCommand(curves);
}

std::vector<double> sortedLatencies(const Transfers& transfers)
{
    std::vector<double> sorted;
    for (const TimedTransfer& transfer : transfers)
        sorted.push_back(std::max(transfer.latencyMs, shortestMs));
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

// Width of a bin, in decades: the finest of some round ones that the panel has room for.
double binWidth(double decades)
{
    for (const double width : {0.01, 0.02, 0.05, 0.1})
        if (decades / width <= binsMax)
            return width;
    return 0.2;
}

struct Bin
{
    double low = 0;
    double high = 0;
    std::size_t count = 0;
};

// REQUIRES: sorted is not empty.
std::vector<Bin> binsOf(const std::vector<double>& sorted)
{
    const double width = binWidth(std::log10(sorted.back() / sorted.front()));
    const auto place = [width](double value) {
        return static_cast<std::size_t>(std::floor((std::log10(value) - std::log10(shortestMs)) / width));
    };
    const std::size_t first = place(sorted.front());
    std::vector<Bin> bins(place(sorted.back()) - first + 1);
    for (std::size_t i = 0; i < bins.size(); ++i) {
        bins[i].low = shortestMs * std::pow(10, static_cast<double>(first + i) * width);
        bins[i].high = shortestMs * std::pow(10, static_cast<double>(first + i + 1) * width);
    }
    for (const double value : sorted)
        ++bins[std::min(place(value) - first, bins.size() - 1)].count;
    return bins;
}

// Wide enough for a labelled tic, whatever the bins are.
Range widened(Range range)
{
    constexpr double factorMin = 3;
    const double missing = std::sqrt(std::max(1.0, factorMin * range.low / range.high));
    return {range.low / missing, range.high * missing};
}

// Of the axis of the distribution, which may hold less than a decade: then there is nothing at a power of
// ten.
std::string latencyTics(const Range& range)
{
    const double decades = std::log10(range.high / range.low);
    const std::vector<int> steps = decades < 1   ? std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}
                                   : decades < 3 ? std::vector<int>{1, 2, 5}
                                                 : std::vector<int>{1};
    std::string tics;
    for (double decade = decadeBelow(range.low); decade <= range.high; decade *= 10)
        for (const int step : steps)
            tics += (tics.empty() ? "" : ", ") + number(decade * step);
    return "set xrange [" + number(range.low) + ':' + number(range.high) + "]\nset xtics (" + tics + ")\n";
}

std::string distributionPanel(const Transfers& transfers)
{
    const std::vector<double> sorted = sortedLatencies(transfers);
    std::string script = "set xlabel 'latency (ms)'\nset ylabel 'requests'\nunset logscale\nset logscale x\n";
    if (sorted.empty())
        return script + heading("Distribution of latency") + "set xrange [1:10]\nset yrange [0:1]\n" +
               plotCommand({});
    const auto within = [&sorted](double part) {
        return rounded(sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))]);
    };
    const std::vector<Bin> bins = binsOf(sorted);
    script += dataBlock("bins", bins, [](const Bin& bin) {
        return number(std::sqrt(bin.low * bin.high)) + ' ' + std::to_string(bin.count) + ' ' +
               number(bin.low) + ' ' + number(bin.high) + " 0 " + std::to_string(bin.count) + '\n';
    });
    const auto most = std::max_element(bins.begin(), bins.end(),
                                       [](const Bin& a, const Bin& b) { return a.count < b.count; });
    script += heading("Distribution of latency: half within " + within(0.5) + " ms, 99 % within " +
                      within(0.99) + " ms, longest " + within(1) + " ms") +
              latencyTics(widened({bins.front().low, bins.back().high})) +
              "set yrange [0:" + number(headroom * static_cast<double>(most->count)) + "]\n";
    return script + plotCommand({"$bins using 1:2:3:4:5:6 with boxxyerror lc rgb '#1f6fb4' fs solid 0.7 "
                                 "noborder notitle"});
}

struct Step
{
    double timeS = 0;
    double rate = 0;  // MB (10^6 bytes) per second
};

// Bytes count when they are there.
std::vector<Step> stepsOf(const Transfers& transfers, double lengthS)
{
    const std::size_t count =
        std::clamp<std::size_t>(transfers.size() / transfersPerInterval, 1, intervalsMax);
    const double interval = lengthS / static_cast<double>(count);
    std::vector<Step> steps(count);
    for (const TimedTransfer& transfer : transfers) {
        const auto index = static_cast<std::size_t>(std::max(0.0, transfer.endS() / interval));
        steps[std::min(index, count - 1)].rate += static_cast<double>(transfer.bytes) / 1e6 / interval;
    }
    for (std::size_t i = 0; i < count; ++i)
        steps[i].timeS = static_cast<double>(i) * interval;
    steps.push_back({lengthS, steps.back().rate});
    return steps;
}

std::string throughputPanel(const Transfers& transfers, double lengthS)
{
    std::string script = timeAxis(lengthS) + "set ylabel 'MB/s (10^6 bytes)'\n";
    if (transfers.empty())
        return script + heading("Throughput") + "set yrange [0:1]\n" + plotCommand({});
    std::uint64_t bytes = 0;
    for (const TimedTransfer& transfer : transfers)
        bytes += transfer.bytes;
    const std::vector<Step> steps = stepsOf(transfers, lengthS);
    const auto fastest = std::max_element(steps.begin(), steps.end(),
                                          [](const Step& a, const Step& b) { return a.rate < b.rate; });
    script += "set yrange [0:" + number(std::max(headroom * fastest->rate, 1e-6)) + "]\n";
    script += dataBlock("rate", steps,
                        [](const Step& step) { return number(step.timeS) + ' ' + number(step.rate) + '\n'; });
    script += heading("Throughput: " + readableBytes(static_cast<double>(bytes)) + " in " + rounded(lengthS) +
                      " s, " + readableBytes(static_cast<double>(bytes) / lengthS) + "/s on average");
    return script +
           plotCommand({"$rate using 1:2 with fillsteps fs solid 0.25 noborder lc rgb '#2e8b57' notitle",
                        "$rate using 1:2 with steps lw 1.5 lc rgb '#2e8b57' notitle"});
}

}  // namespace

std::string plotBeginning(PlotFormat format)
{
    const std::string terminal =
        format == PlotFormat::svg
            ? "svg size 900,1080 font 'DejaVu Sans,Arial,sans-serif,12' background rgb 'white'"
            : "pngcairo size 900,1080 font 'DejaVu Sans,10' background rgb 'white'";
    return "set encoding utf8\nset terminal " + terminal + '\n';
}

std::string plotScript(PlotFormat format, const std::string& title, std::vector<TimedTransfer> transfers)
{
    std::stable_sort(transfers.begin(), transfers.end(),
                     [](const auto& a, const auto& b) { return a.startS < b.startS; });
    const double lengthS = lengthOf(transfers);
    return plotBeginning(format) +
           "set multiplot layout 3,1 margins 0.1,0.96,0.06,0.91 spacing 0.1,0.09 title " + quoted(title) +
           " noenhanced font ',15'\n" +
           "set border 3 lc rgb '#666666'\nset tics nomirror textcolor rgb '#222222'\nset format '%g'\n"
           "set grid lc rgb '#dddddd' lt 1 lw 0.6\nset key at graph 1, graph 1.12 right top horizontal "
           "maxrows 1 noopaque\n"
           "set termoption noenhanced\n" +
           latencyPanel(transfers, lengthS) + distributionPanel(transfers) +
           throughputPanel(transfers, lengthS) + "unset multiplot\n";
}
