#include "Meter.h"

#include <valgrind/callgrind.h>

#include <algorithm>

namespace {

double us(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

}  // namespace

Meter::Reading Meter::read()
{
    Reading reading{};
    getrusage(RUSAGE_SELF, &reading.usage);
    reading.time = SteadyClock::now();
    return reading;
}

// What runs in between is also what callgrind counts, in a run under valgrind; in any other these two are
// nothing.
void Meter::start()
{
    CALLGRIND_START_INSTRUMENTATION;
    start_ = read();
}

void Meter::stop()
{
    stop_ = read();
    CALLGRIND_STOP_INSTRUMENTATION;
}

double Meter::seconds() const { return std::chrono::duration<double>(stop_.time - start_.time).count(); }

Json Meter::report(std::uint64_t requests, std::uint64_t bytes) const
{
    const double userUs = us(stop_.usage.ru_utime) - us(start_.usage.ru_utime);
    const double sysUs = us(stop_.usage.ru_stime) - us(start_.usage.ru_stime);
    const double count = static_cast<double>(std::max<std::uint64_t>(requests, 1));
    const double time = std::max(seconds(), 1e-9);
    return {
        {"requests", requests},
        {"bytes", bytes},
        {"seconds", seconds()},
        {"user_us", userUs},
        {"sys_us", sysUs},
        {"cpu_us_per_request", (userUs + sysUs) / count},
        {"requests_per_s", static_cast<double>(requests) / time},
        {"mb_per_s", static_cast<double>(bytes) / 1e6 / time},
        // What came from the disk, as far as the kernel charges it to this process.
        {"disk_bytes", (stop_.usage.ru_inblock - start_.usage.ru_inblock) * 512},
        {"switches_voluntary", stop_.usage.ru_nvcsw - start_.usage.ru_nvcsw},
        {"switches_forced", stop_.usage.ru_nivcsw - start_.usage.ru_nivcsw},
    };
}

Json percentiles(std::vector<double> values)
{
    if (values.empty())
        return nullptr;
    std::sort(values.begin(), values.end());
    const auto at = [&](double part) {
        return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
    };
    return {{"p50", at(0.5)},
            {"p90", at(0.9)},
            {"p99", at(0.99)},
            {"min", values.front()},
            {"max", values.back()}};
}
