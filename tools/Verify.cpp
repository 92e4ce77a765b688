#include "Verify.h"

#include "Hash.h"
#include "Progress.h"
#include "StreamReader.h"

#include <algorithm>
#include <chrono>

ReadResult readThrough(const Source& source, unsigned blockBytes, unsigned depth, bool hash,
                       bool keepTransfers)
{
    ReadResult result;
    StreamReader reader(source.path);
    if (!reader.isOpen())
        return result;
    Progress progress("read", source.size);
    Hash sum;
    std::uint64_t asked = 0;
    const auto start = StreamReader::Clock::now();
    while (result.bytes < source.size) {
        while (asked < source.size && reader.underWay() < depth) {
            const auto bytes =
                static_cast<unsigned>(std::min<std::uint64_t>(blockBytes, source.size - asked));
            if (!reader.ask(asked, bytes))
                return result;
            asked += bytes;
        }
        const StreamReader::Piece piece = reader.next();
        if (!piece.succeeded)
            return result;
        if (hash)
            sum.add(piece.data->getBuffer(), piece.bytes);
        result.bytes += piece.bytes;
        const auto latency = std::chrono::duration_cast<std::chrono::microseconds>(piece.ended - piece.asked);
        result.latenciesUs.push_back(static_cast<std::uint64_t>(latency.count()));
        if (keepTransfers)
            result.transfers.push_back(TimedTransfer::between(start, piece.asked, piece.ended, piece.bytes));
        progress.advance(piece.bytes);
    }
    result.seconds = std::chrono::duration<double>(StreamReader::Clock::now() - start).count();
    result.hash = hash ? sum.text() : std::string();
    result.complete = true;
    return result;
}
