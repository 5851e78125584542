/// @file
/// Parts of a record that are read from a parsed reply when first used rather
/// than when the record is made, with the same result: a reply that has not
/// been written since it was parsed cannot change, and before its first write
/// the reply reads every part still put off on it.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>

#include "veltrane/foundation/Value.h"

namespace veltrane {

namespace detail {

struct Arena;

/// A read put off on a reply. The reply runs it before its first write (on
/// the writing thread); a holder runs it through resolve() when it needs the
/// result first. Either way it runs once, under the reply's lock, so that no
/// write of the reply meets it half done.
class PendingRead {
public:
    PendingRead() noexcept = default;
    PendingRead(const PendingRead&) = delete;
    PendingRead& operator=(const PendingRead&) = delete;

protected:
    /// Puts the read off on the reply that source belongs to. False, with
    /// nothing put off, when source is not part of a reply or its reply has
    /// been written: the caller reads at once. Throws std::bad_alloc.
    bool defer(const Dictionary& source);
    /// Runs the read now if it is still put off.
    void resolve();
    /// Takes the read back without running it. The holder calls this first
    /// in its destructor, while its handle to the source still keeps the
    /// reply alive, and before the members the read uses go.
    void withdraw() noexcept;
    ~PendingRead() = default;

    /// The read itself: called once, under the reply's lock, with copies made
    /// as ordinary (sharing) copies. It may throw (then it stays put off).
    virtual void readNow() = 0;

private:
    friend struct Arena;
    Arena* arena_ = nullptr;  ///< kept alive by the holder's own handle to its source
    size_t place_ = 0;        ///< in the arena's list, while pending
    bool pending_ = false;    ///< guarded by the arena's lock
};

} // namespace detail

/// The parts of a record (a plain struct of its fields), read by a function
/// of the dictionary the record was made from: at once, or on first use when
/// that dictionary is part of a reply not yet written.
///
/// Thread and lifetime rules: like the record's own fields. A const holder may
/// be read from several threads at once (the first use reads once, under the
/// reply's lock); writing needs the holder alone. A copy holds parts of its
/// own, a member-wise copy of the original's (read first if need be): handles
/// inside are shared, as the record's copies share them. A moved-from holder
/// reads as default parts.
template <class Parts>
class Deferred {
public:
    /// How the parts are read from the dictionary a record is made from.
    using Read = Parts (*)(const Dictionary&);

    /// Default parts (made when first written).
    Deferred() noexcept = default;
    /// read(source), put off when lazy is true and source is part of a reply
    /// not yet written; otherwise now (and whatever read throws comes out here).
    Deferred(const Dictionary& source, Read read, bool lazy) : slot_(new Slot()) {
        if (lazy) {
            slot_->source = source;
            slot_->read = read;
            if (slot_->put()) return;
        }
        detail::BatchedCounts batch(&source);
        slot_->parts.store(new Parts(read(source)), std::memory_order_relaxed);
    }
    /// Parts of its own: a member-wise copy of other's (read first if need
    /// be). Moves take the parts, or the read still put off.
    ///@{
    Deferred(const Deferred& other) : slot_(other.slot_ ? new Slot() : nullptr) {
        if (slot_) slot_->parts.store(new Parts(other.get()), std::memory_order_relaxed);
    }
    Deferred(Deferred&& other) noexcept = default;
    Deferred& operator=(const Deferred& other) {
        if (this != &other) *this = Deferred(other);
        return *this;
    }
    Deferred& operator=(Deferred&& other) noexcept = default;
    ///@}
    ~Deferred() = default;

    /// The parts, read now if they were put off. Throws std::bad_alloc.
    const Parts& get() const {
        if (!slot_) return defaults();
        if (Parts* p = slot_->parts.load(std::memory_order_acquire)) return *p;
        return slot_->readHere();
    }
    /// The parts, to write (read first if they were put off).
    Parts& edit() {
        if (!slot_) {
            slot_.reset(new Slot());
            slot_->parts.store(new Parts(), std::memory_order_relaxed);
        }
        return const_cast<Parts&>(get());
    }
    /// Whether the parts are still put off (for tests).
    bool isPending() const noexcept { return slot_ && !slot_->parts.load(std::memory_order_acquire); }

private:
    struct Slot final : detail::PendingRead {
        std::atomic<Parts*> parts{nullptr};
        std::optional<Dictionary> source;  ///< while the read may be put off
        Read read = nullptr;

        bool put() { return defer(*source); }
        const Parts& readHere() {
            resolve();
            return *parts.load(std::memory_order_acquire);
        }
        void readNow() override {
            detail::BatchedCounts batch(&*source);
            parts.store(new Parts(read(*source)), std::memory_order_release);
        }
        ~Slot() {
            withdraw();
            delete parts.load(std::memory_order_relaxed);
        }
    };
    static const Parts& defaults() {
        static const Parts none{};
        return none;
    }
    std::unique_ptr<Slot> slot_;
};

} // namespace veltrane
