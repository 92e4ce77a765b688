#pragma once

#include <cstdint>
#include <string>
#include <vector>

// WriteModel: what the rules say about one file that is open for writing: where its bytes go, and when.
//
// Of its own, beside the engine: it is told what callers do and how transfers end, never what the engine did.
// Rules:      whole sectors at a whole sector go out as a request at the position; everything else is
// gathered
//             and goes out in whole sectors at the position once more than 131072 bytes are there. What is
//             gathered goes where the last request ended (512 in a fresh file) when the file seeks, writes
//             synchronously or closes; a close puts it there twice, the second time behind the first.
class WriteModel
{
public:
    // A request that was accepted and has not ended.
    struct Pending
    {
        unsigned caller;  // 0: the callers have been told already
        std::uint64_t position;
        std::string bytes;
        bool gone = false;  // it has ended or was refused
    };
    enum class Way { direct, gathered, overflows };

    WriteModel() = default;
    explicit WriteModel(const std::string& disk) : position_(disk.size()), disk_(disk) {}

    [[nodiscard]] Way wayOf(std::size_t size) const;
    void writeDirect(unsigned caller, const std::string& bytes);
    void gather(const std::string& bytes) { gathered_ += bytes; }
    // What an overflow sends; the request is pending from here on, and its callers but the last are told.
    void beginOverflow(unsigned caller);
    void endOverflow();
    void write(const std::string& bytes);
    void seek(std::uint64_t position);
    void close();

    // A transfer of that range begins to end, having moved so many bytes. Empty, or what is wrong with it.
    [[nodiscard]] std::string transferred(std::uint64_t position, std::size_t length, std::size_t moved,
                                          std::vector<unsigned>& callers);
    // A caller heard of a failure without a transfer.
    void refused(unsigned caller);

    [[nodiscard]] std::size_t gatheredBytes() const { return gathered_.size(); }
    [[nodiscard]] std::uint64_t position() const { return position_; }
    [[nodiscard]] const std::string& disk() const { return disk_; }
    [[nodiscard]] const std::vector<Pending>& pending() const { return pending_; }
    // Each byte is the disk's or that of a pending request. Empty, or what is wrong.
    [[nodiscard]] std::string differenceTo(const std::string& file) const;

private:
    void put(std::uint64_t position, std::string_view bytes);
    void putGathered();

    std::uint64_t position_ = 0;
    std::uint64_t gatheredAt_ = 512;
    std::string gathered_;
    std::string disk_;
    std::vector<Pending> pending_;
};
