// A program gives the same bits whether its gates act at once or wait, and however its records are
// cut into calls.

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <random>

#include "dense/blocks/gate_queue.h"
#include "dense/blocks/kernels/width.h"
#include "dense/blocks/store.h"
#include "dense/dense_fixture.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

struct Setting {
    unsigned long qubits;
    unsigned long block_qubits;
    bool threads;
    bool lent = false;

    friend void PrintTo(const Setting& s, std::ostream* out) {
        *out << s.qubits << " qubits, blocks of " << s.block_qubits
             << (s.threads ? ", threads" : "") << (s.lent ? ", lent memory" : "");
    }
};

/// What can be seen of a register.
struct Seen {
    State state;
    unsigned long op_count;
    unsigned long classical_qubits;
    std::vector<unsigned long> flags;
    std::vector<bool> all_zero;
    std::vector<unsigned long> store_slots;
    unsigned failures;
};

void expect_same(const Seen& actual, const Seen& expected) {
    EXPECT_TRUE(same_bits(actual.state, expected.state));
    EXPECT_EQ(actual.op_count, expected.op_count);
    EXPECT_EQ(actual.classical_qubits, expected.classical_qubits);
    EXPECT_EQ(actual.flags, expected.flags);
    EXPECT_EQ(actual.all_zero, expected.all_zero);
    EXPECT_EQ(actual.store_slots, expected.store_slots);
    EXPECT_EQ(actual.failures, expected.failures);
}

/// Random programs of every gate, with measurements, resets and refused records among them.
class Programs {
  public:
    Programs(std::uint64_t seed, unsigned long qubits) : generator_(seed), qubits_(qubits) {}

    std::vector<QPUOp> draw(std::size_t length) {
        std::vector<QPUOp> program;
        while (program.size() < length) program.push_back(draw_record());
        return program;
    }

  private:
    unsigned long below(unsigned long n) { return generator_() % n; }
    unsigned long qubit() { return 1UL << below(qubits_); }
    /// Few bits mostly, sometimes many, and now and then one outside the register.
    unsigned long mask() {
        unsigned long mask = 0;
        for (unsigned long i = below(3); i > 0; --i) mask |= qubit();
        if (below(20) == 0) mask = generator_();
        return mask;
    }
    double angle() {
        constexpr double special[] = {0.0, 90.0, 180.0, 360.0, -180.0};
        if (below(4) == 0) return special[below(5)];
        return static_cast<double>(below(7200)) / 10.0 - 360.0;
    }

    QPUOp draw_record() {
        constexpr unsigned long gates[] = {
            OP_X,  OP_X,     OP_X,  OP_Y,         OP_H,   OP_H,   OP_SWAP,  OP_LELBOW,
            OP_Z,  OP_ROOTX, OP_RX, OP_ROOTY_INV, OP_RY,  OP_RZ,  OP_RX,    OP_RY,
            OP_RZ, OP_PHASE, OP_T,  OP_S_INV,     OP_PPR, OP_PPR, OP_PHASE, OP_Z};
        constexpr unsigned long others[] = {OP_READ, OP_WRITE, OP_CLEAR, OP_PPM, OP_FREE};
        Words words{.target_mask = qubit(), .cond_mask = mask(), .angle = angle()};
        if (below(4) == 0) words.target_mask |= mask();
        if (below(3) == 0) words.cond_neg_mask = words.cond_mask & generator_();
        if (below(40) == 0) words.cond_neg_mask ^= qubit();
        if (below(15) == 0) words.cond_flag = 3;
        if (below(60) == 0) return record(OP_RESET, {.target_mask = qubits_});
        if (below(60) == 0) return refused();
        if (below(12) == 0) {
            words.read_flag = 2 + static_cast<long>(below(8));
            words.cond_mask &= words.target_mask;
            return record(others[below(std::size(others))], words);
        }
        const unsigned long gate = gates[below(std::size(gates))];
        if (gate == OP_PPR) {
            // X mask, Z mask and controls.
            words.cond_mask = below(3) == 0 ? generator_() : mask();
            words.target_mask = below(3) == 0 ? generator_() : mask();
            words.read_flag = below(3) == 0 ? static_cast<long>(mask()) : 0;
        }
        return record(gate, words);
    }

    /// A value outside the register.
    QPUOp refused() const {
        return record(OP_WRITE, {.target_mask = (1UL << qubits_) - 1, .cond_mask = ~0UL});
    }

    std::mt19937_64 generator_;
    unsigned long qubits_;
};

/// Lengths of the calls that a program is cut into.
using Cut = std::function<std::size_t(std::size_t left)>;

class WaitingGates : public testing::TestWithParam<Setting> {
  protected:
    static constexpr unsigned seed = 20261122;

    void TearDown() override { use_wide_kernels(true); }

    static std::unique_ptr<OpFilter_QPUSim> make_filter(bool gates_wait, State& memory) {
        const Setting& s = GetParam();
        auto filter = std::make_unique<OpFilter_QPUSim>();
        QPU& qpu = *filter->qpu;
        qpu.waits_from_qubits = 1;
        qpu.gates_wait = gates_wait;
        qpu.sim_params["num_block_qubits"] = s.block_qubits;
        qpu.sim_params["async"] = s.threads ? 1 : 0;
        memory = State(s.lent ? 1UL << s.qubits : 0);
        if (s.lent) memory[0].re = 1.0;
        EXPECT_TRUE(qpu.reset(s.qubits, s.lent ? memory.data() : nullptr));
        set_random_seed(seed);
        return filter;
    }

    /// Runs a program and goes on after each refused record.
    static Seen run(const std::vector<QPUOp>& program, bool gates_wait, const Cut& cut,
                    bool look = false) {
        State memory;
        const auto filter = make_filter(gates_wait, memory);
        QPU& qpu = *filter->qpu;
        Seen seen{};
        std::size_t done = 0;
        while (done < program.size()) {
            const std::size_t length = cut(program.size() - done);
            // Up to and with the first refused record, as the engine itself runs them.
            std::size_t i = 0;
            while (i < length) {
                const std::size_t count = until_refused(program, done + i, done + length);
                try {
                    filter->put_instructions(program.data() + done + i, count);
                } catch (const std::runtime_error&) {
                    ++seen.failures;
                }
                i += count;
            }
            done += length;
            if (look) qpu.get_value(1);
        }
        if (GetParam().lent) {
            // The caller may read its memory without a call of the engine.
            seen.state = memory;
            for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
                const unsigned long slot = qpu.blocks[i]->store_slot;
                std::copy_n(memory.begin() + static_cast<long>(slot * qpu.terms_per_block),
                            qpu.terms_per_block,
                            seen.state.begin() + static_cast<long>(i * qpu.terms_per_block));
            }
            EXPECT_TRUE(same_bits(seen.state, state_of(qpu)));
        } else {
            seen.state = state_of(qpu);
        }
        seen.op_count = qpu.op_count;
        seen.classical_qubits = qpu.classical_qubits;
        seen.flags = qpu.read_flags;
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
            seen.all_zero.push_back(qpu.blocks[i]->all_zero);
            seen.store_slots.push_back(qpu.blocks[i]->store_slot);
        }
        OpFilter::filter_registry.erase(filter->handle);
        return seen;
    }

    static std::size_t until_refused(const std::vector<QPUOp>& program, std::size_t first,
                                     std::size_t end) {
        std::size_t i = first;
        while (i < end && !is_refused(program[i])) ++i;
        return std::min(i + 1, end) - first;
    }
    static bool is_refused(const QPUOp& op) {
        return op.opcode == OP_WRITE && op.cond_mask == ~0UL;
    }

    static std::size_t whole(std::size_t left) { return left; }
    static std::size_t single(std::size_t /*left*/) { return 1; }

    static std::size_t num_programs() { return GetParam().qubits > 12 ? 12 : 25; }
};

INSTANTIATE_TEST_SUITE_P(
    Settings, WaitingGates,
    testing::Values(Setting{1, 0, false}, Setting{3, 1, false}, Setting{4, 0, true},
                    Setting{5, 2, true}, Setting{6, 0, false}, Setting{7, 1, true},
                    Setting{8, 3, false}, Setting{8, 2, false, true}, Setting{11, 9, true},
                    Setting{12, 0, false}, Setting{12, 7, true}, Setting{13, 0, true},
                    Setting{13, 11, false, true}, Setting{14, 8, false},
                    Setting{14, 12, true, true}, Setting{15, 13, true}, Setting{15, 9, true},
                    Setting{16, 0, false}, Setting{16, 13, true, true}));

TEST_P(WaitingGates, ActAsGatesThatActAtOnce) {
    Programs programs(seed_of_this_test(), GetParam().qubits);
    for (std::size_t i = 0; i < num_programs(); ++i) {
        SCOPED_TRACE("program " + std::to_string(i));
        const auto program = programs.draw(60);
        expect_same(run(program, true, whole), run(program, false, single));
    }
}

TEST_P(WaitingGates, DoNotDependOnTheCallsThatTheyComeIn) {
    Programs programs(seed_of_this_test(), GetParam().qubits);
    std::mt19937_64 generator(seed_of_this_test());
    const Cut random = [&](std::size_t left) { return 1 + generator() % left; };
    for (std::size_t i = 0; i < num_programs(); ++i) {
        SCOPED_TRACE("program " + std::to_string(i));
        const auto program = programs.draw(60);
        const Seen expected = run(program, true, whole);
        expect_same(run(program, true, single), expected);
        expect_same(run(program, true, random), expected);
        expect_same(run(program, true, single, true), expected);
    }
}

TEST_P(WaitingGates, GiveTheSameBitsAtBothVectorWidths) {
    Programs programs(seed_of_this_test(), GetParam().qubits);
    for (std::size_t i = 0; i < num_programs(); ++i) {
        SCOPED_TRACE("program " + std::to_string(i));
        const auto program = programs.draw(60);
        const Seen expected = run(program, true, whole);
        use_wide_kernels(false);
        expect_same(run(program, true, whole), expected);
        use_wide_kernels(true);
    }
}

TEST_P(WaitingGates, ActInAForkedChild) {
    if (GetParam().lent) GTEST_SKIP() << "no gate waits between calls";
    Programs programs(seed_of_this_test(), GetParam().qubits);
    const auto program = programs.draw(60);
    State memory;
    const auto filter = make_filter(true, memory);
    for (const QPUOp& op : program) {
        if (!is_refused(op)) filter->put_instructions(&op, 1);
    }
    int results[2];
    ASSERT_EQ(pipe(results), 0);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    const unsigned long size = filter->qpu->num_terms * sizeof(complex_t);
    if (child == 0) {
        const State state = state_of(*filter->qpu);
        const char* bytes = reinterpret_cast<const char*>(state.data());
        for (unsigned long sent = 0; sent < size;) {
            const ssize_t written = write(results[1], bytes + sent, size - sent);
            if (written <= 0) break;
            sent += static_cast<unsigned long>(written);
        }
        _exit(0);
    }
    close(results[1]);
    State of_child(filter->qpu->num_terms);
    for (unsigned long got = 0; got < size;) {
        const ssize_t count =
            read(results[0], reinterpret_cast<char*>(of_child.data()) + got, size - got);
        if (count <= 0) break;
        got += static_cast<unsigned long>(count);
    }
    close(results[0]);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(same_bits(of_child, state_of(*filter->qpu)));
    OpFilter::filter_registry.erase(filter->handle);
}

}  // namespace
