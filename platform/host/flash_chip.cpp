// flash_chip.cpp: the blocks' rules: a write only clears bits, an erase sets a whole block's, a locked block is not
// erased, a bad block takes neither; and the faults that a test or a power cut brings in the middle of them.
//
// A lock guards a block against being erased. It does not hold back programming, as on the device, where an upgrade
// locks each block when it has erased it and programs all of them afterwards.

#include "platform/host/flash_chip.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "platform/host/flash_boot.h"
#include "platform/host/process_lock.h"

namespace ap::host::flash {

struct Chip::State {
    uint32_t counts[operation_count];
    uint32_t action, operations, operations_left;  // the armed fault
    int32_t error;

    uint8_t *locked() { return reinterpret_cast<uint8_t *>(this + 1); }  // behind the record, one byte a block
};

namespace {

constexpr char mark_path[] = "/.apbox";
constexpr char state_path[] = "/apbox/flash/state";
constexpr char lock_path[] = "/apbox/flash/lock";
constexpr uint8_t erased = 0xff;

pthread_mutex_t chip_mutex = PTHREAD_MUTEX_INITIALIZER;  // with the lock file: one change at a time
std::mutex chip_created;
std::unique_ptr<Chip> the_chip;

[[noreturn]] void lose_power() {
    kill(getpid(), SIGKILL);
    for (;;) pause();
}

// Clears the bits that are zero in the data, a word at a time.
void program_bytes(uint8_t *flash, const uint8_t *data, size_t length) {
    size_t done = 0;
    for (; length - done >= sizeof(uint64_t); done += sizeof(uint64_t))
        store_le(flash + done, load_le<uint64_t>(flash + done) & load_le<uint64_t>(data + done));
    for (; done < length; ++done) flash[done] &= data[done];
}

// Half of the bytes, and half of the bits of the one behind them.
void program_half(uint8_t *flash, const uint8_t *data, size_t length) {
    const size_t done = length / 2;
    program_bytes(flash, data, done);
    if (done < length) flash[done] &= static_cast<uint8_t>(data[done] | 0x0f);
}

// Half of a block is erased, a quarter has some of its bits back, the rest is as it was.
void erase_half(uint8_t *block, size_t size) {
    std::memset(block, erased, size / 2);
    for (size_t i = size / 2; i < size / 4 * 3; ++i) block[i] |= 0x55;
}

bool write_new_file(const std::string &path, const std::string &content) {
    const std::string temporary = path + ".new";
    const UniqueFd file = open_fd(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    return file && write_full(file.get(), content.data(), content.size()) &&
           std::rename(temporary.c_str(), path.c_str()) == 0;
}

// True when the file is there with that size, or is made so. A file of another size is refused, not overwritten.
bool ensure_file(const std::string &path, size_t size, const std::string &first_content) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return write_new_file(path, first_content);
    if (status.st_size == static_cast<off_t>(size)) return true;
    std::fprintf(stderr, "flash: %s has %lld bytes, the scenario says %zu; remove it to start with a new one\n",
                 path.c_str(), static_cast<long long>(status.st_size), size);
    return errno = ENODEV, false;
}

void empty_folder() {
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(folder, ignored))
        std::filesystem::remove(entry.path(), ignored);
}

// The partition's content in a device from the factory.
std::string factory_content(const Description &description, const Partition &partition) {
    std::string content(partition.size, static_cast<char>(erased));
    if (partition.name == name_of_bank(description.booted_bank)) {
        const std::string payload = factory_payload();
        if (payload.size() <= content.size()) content.replace(0, payload.size(), payload);
    }
    return content;
}

// Maps a file at an address inside the reserved range, or anywhere.
void *map_file(const std::string &path, size_t size, void *where) {
    const UniqueFd file = open_fd(path.c_str(), O_RDWR);
    if (!file) return nullptr;
    const int fixed = where != nullptr ? MAP_FIXED : 0;
    void *mapped = mmap(where, size, PROT_READ | PROT_WRITE, MAP_SHARED | fixed, file.get(), 0);
    return mapped != MAP_FAILED ? mapped : nullptr;
}

}  // namespace

Chip *Chip::get() {
    const std::lock_guard lock(chip_created);
    if (the_chip) return the_chip.get();
    if (access(mark_path, F_OK) != 0) return errno = ENODEV, nullptr;
    const Description *described = flash::description();
    if (described == nullptr) return errno = ENODEV, nullptr;

    std::unique_ptr<Chip> chip(new Chip(*described));
    if (!chip->map()) return chip->unmap(), nullptr;
    the_chip = std::move(chip);
    return the_chip.get();
}

bool Chip::map() {
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    const ProcessLock lock(chip_mutex, lock_path);
    if (!lock) return false;

    state_size_ = sizeof(State) + description_.size / description_.erase_size;
    if (!ensure_file(state_path, state_size_, std::string(state_size_, '\0'))) return false;
    state_ = static_cast<State *>(map_file(state_path, state_size_, nullptr));
    if (state_ == nullptr) return false;

    void *range = mmap(nullptr, description_.size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (range == MAP_FAILED) return false;
    bytes_ = static_cast<uint8_t *>(range);
    return std::ranges::all_of(description_.partitions, [&](const Partition &partition) {
        if (!partition.has_file()) return true;
        const bool exists = access(partition.path().c_str(), F_OK) == 0;
        return ensure_file(partition.path(), partition.size,
                           exists ? std::string() : factory_content(description_, partition)) &&
               map_file(partition.path(), partition.size, bytes_ + partition.offset) != nullptr;
    });
}

void Chip::unmap() {
    const KeepErrno keep;
    if (bytes_ != nullptr) munmap(bytes_, description_.size);
    if (state_ != nullptr) munmap(state_, state_size_);
    bytes_ = nullptr;
    state_ = nullptr;
}

template <typename Half> int Chip::step(Operation operation, Half half) {
    State &state = *state_;
    __atomic_fetch_add(&state.counts[static_cast<uint32_t>(operation)], 1, __ATOMIC_RELAXED);
    const auto action = static_cast<Action>(__atomic_load_n(&state.action, __ATOMIC_RELAXED));
    if (action == Action::none || (state.operations & bit(operation)) == 0) return 0;
    if (__atomic_sub_fetch(&state.operations_left, 1, __ATOMIC_RELAXED) != 0) return 0;
    __atomic_store_n(&state.action, static_cast<uint32_t>(Action::none), __ATOMIC_RELAXED);
    if (action == Action::fail) return -state.error;
    half();
    lose_power();
}

int Chip::step(Operation operation) {
    return step(operation, [] {});
}

bool Chip::has_whole_blocks(uint32_t start, uint32_t length) const {
    return start % description_.erase_size == 0 && length % description_.erase_size == 0;
}

bool Chip::is_bad(uint32_t start, uint32_t length) const {
    const uint32_t first = start / description_.erase_size;
    const uint32_t last = (start + std::max(length, 1U) - 1) / description_.erase_size;
    return std::ranges::any_of(description_.bad_blocks,
                               [&](uint32_t block) { return block >= first && block <= last; });
}

bool Chip::is_locked(uint32_t start, uint32_t length) const {
    const uint32_t first = start / description_.erase_size, blocks = length / description_.erase_size;
    const uint8_t *locked = state_->locked() + first;
    return std::any_of(locked, locked + blocks,
                       [](const uint8_t &block) { return __atomic_load_n(&block, __ATOMIC_RELAXED) != 0; });
}

int Chip::erase(uint32_t start, uint32_t length) {
    const ProcessLock lock(chip_mutex, lock_path);
    if (!lock) return -errno;
    if (!has_whole_blocks(start, length)) return -EINVAL;
    if (is_locked(start, length)) return -EROFS;
    if (is_bad(start, length)) return -EIO;

    const int fault = step(Operation::erase, [&] { erase_half(bytes_ + start, description_.erase_size); });
    if (fault != 0) return fault;
    std::memset(bytes_ + start, erased, length);
    return 0;
}

ssize_t Chip::program(uint32_t start, const uint8_t *data, size_t length) {
    const ProcessLock lock(chip_mutex, lock_path);
    if (!lock) return -errno;
    if (start % description_.write_size != 0 || length % description_.write_size != 0) return -EINVAL;
    if (is_bad(start, static_cast<uint32_t>(length))) return -EIO;

    const int fault = step(Operation::write, [&] { program_half(bytes_ + start, data, length); });
    if (fault != 0) return fault;
    program_bytes(bytes_ + start, data, length);
    return static_cast<ssize_t>(length);
}

int Chip::set_locked(uint32_t start, uint32_t length, bool locked) {
    if (!has_whole_blocks(start, length)) return -EINVAL;
    const int fault = step(locked ? Operation::lock : Operation::unlock);
    if (fault != 0) return fault;
    uint8_t *block = state_->locked() + start / description_.erase_size;
    for (uint32_t left = length / description_.erase_size; left > 0; --left, ++block)
        __atomic_store_n(block, static_cast<uint8_t>(locked ? 1 : 0), __ATOMIC_RELAXED);
    return 0;
}

bool start_over() {
    {
        const std::lock_guard lock(chip_created);
        if (the_chip) the_chip->unmap();
        the_chip.reset();
        if (access(mark_path, F_OK) == 0) empty_folder();
        forget_description();
    }
    return Chip::get() != nullptr;
}

uint32_t count(Operation operation) {
    Chip *chip = Chip::get();
    return chip == nullptr ? 0
                           : __atomic_load_n(&chip->state().counts[static_cast<uint32_t>(operation)], __ATOMIC_RELAXED);
}

void reset_counts() {
    if (Chip *chip = Chip::get()) std::ranges::fill(chip->state().counts, 0U);
}

void arm(const Fault &fault) {
    Chip *chip = Chip::get();
    if (chip == nullptr) return;
    chip->state().operations = fault.operations;
    chip->state().operations_left = fault.nth;
    chip->state().error = fault.error;
    __atomic_store_n(&chip->state().action, static_cast<uint32_t>(fault.action), __ATOMIC_RELAXED);
}

}  // namespace ap::host::flash
