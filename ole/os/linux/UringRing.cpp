#include "os/linux/UringRing.h"

#include <cerrno>
#include <liburing.h>

UringRing::UringRing() : ring_(std::make_unique<io_uring>()) {}

UringRing::~UringRing()
{
    if (built_)
        io_uring_queue_exit(ring_.get());
}

int UringRing::build(unsigned submissionEntries, unsigned completionEntries)
{
    io_uring_params parameters = {};
    parameters.flags = IORING_SETUP_CQSIZE | IORING_SETUP_CLAMP;
    parameters.cq_entries = completionEntries;
    const int result = io_uring_queue_init_params(submissionEntries, ring_.get(), &parameters);
    if (result < 0)
        return -result;
    built_ = true;
    // Kernels without these lose results, look at a request after its submission, or cannot just read.
    constexpr unsigned needed = IORING_FEAT_NODROP | IORING_FEAT_SUBMIT_STABLE | IORING_FEAT_RW_CUR_POS;
    return (parameters.features & needed) == needed ? 0 : ENOSYS;
}

int UringRing::sendTrial()
{
    if (!prepareWakeUp())
        return EBUSY;
    if (const int error = submit())
        return error;
    io_uring_cqe* completion = nullptr;
    const int result = io_uring_wait_cqe(ring_.get(), &completion);
    if (result < 0)
        return -result;
    io_uring_cqe_seen(ring_.get(), completion);
    return 0;
}

unsigned UringRing::completionEntries() const { return *ring_->cq.kring_entries; }

int UringRing::makeSlots(unsigned count) { return -io_uring_register_buffers_sparse(ring_.get(), count); }

int UringRing::setSlot(unsigned slot, void* memory, std::size_t bytes)
{
    iovec piece = {memory, bytes};
    __u64 tag = 0;
    const int result = io_uring_register_buffers_update_tag(ring_.get(), slot, &piece, &tag, 1);
    return result < 0 ? -result : 0;
}

bool UringRing::prepare(TransferKind kind, const Transfer::Step& step, unsigned slot, std::uint64_t mark)
{
    io_uring_sqe* entry = io_uring_get_sqe(ring_.get());
    if (!entry)
        return false;
    if (slot == noSlot && kind == TransferKind::read)
        io_uring_prep_read(entry, step.fd, step.memory, step.count, step.position);
    else if (slot == noSlot)
        io_uring_prep_write(entry, step.fd, step.memory, step.count, step.position);
    else if (kind == TransferKind::read)
        io_uring_prep_read_fixed(entry, step.fd, step.memory, step.count, step.position,
                                 static_cast<int>(slot));
    else
        io_uring_prep_write_fixed(entry, step.fd, step.memory, step.count, step.position,
                                  static_cast<int>(slot));
    if (step.onWorker)
        io_uring_sqe_set_flags(entry, IOSQE_ASYNC);
    io_uring_sqe_set_data64(entry, mark);
    return true;
}

bool UringRing::prepareWakeUp()
{
    io_uring_sqe* entry = io_uring_get_sqe(ring_.get());
    if (!entry)
        return false;
    io_uring_prep_nop(entry);
    io_uring_sqe_set_data64(entry, 0);
    return true;
}

int UringRing::submit()
{
    while (io_uring_sq_ready(ring_.get()) > 0) {
        const int result = io_uring_submit(ring_.get());
        if (result == -EINTR)
            continue;
        if (result < 0)
            return -result;
        if (result == 0)
            return EAGAIN;
    }
    return 0;
}

void UringRing::takeBack(std::vector<std::uint64_t>& marks)
{
    io_uring_sq& queue = ring_->sq;
    const unsigned mask = *queue.kring_mask;
    // Without kernel polling the kernel looks at the tail inside the submitting call only, so that the
    // entries between its head and the tail are ours again.
    const unsigned first = io_uring_smp_load_acquire(queue.khead);
    for (unsigned i = first; i != queue.sqe_tail; ++i)
        marks.push_back(queue.sqes[i & mask].user_data);
    queue.sqe_head = queue.sqe_tail = first;
    io_uring_smp_store_release(queue.ktail, first);
}

void UringRing::wait(std::vector<Result>& results, unsigned limit)
{
    io_uring_cqe* completion = nullptr;
    while (io_uring_wait_cqe(ring_.get(), &completion) == -EINTR) {
    }
    unsigned head = 0;
    unsigned taken = 0;
    io_uring_for_each_cqe(ring_.get(), head, completion)
    {
        if (taken == limit)
            break;
        results.push_back({completion->user_data, completion->res});
        ++taken;
    }
    io_uring_cq_advance(ring_.get(), taken);
}

bool UringRing::hasResults() const { return io_uring_cq_ready(ring_.get()) > 0; }
