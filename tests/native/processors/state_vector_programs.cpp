// Programs on the dense and the sparse filter.
#include "filter/opcodes.h"
#include "processors/program.h"

namespace Nimbrel::Testing {
namespace {

constexpr unsigned long plain_gates[] = {OP_X,     OP_Y,      OP_Z,         OP_H,     OP_SWAP,
                                         OP_S,     OP_S_INV,  OP_T,         OP_T_INV, OP_LELBOW,
                                         OP_ROOTX, OP_RELBOW, OP_ROOTX_INV, OP_ROOTY, OP_ROOTY_INV};
constexpr unsigned long rotations[] = {OP_PHASE, OP_RX, OP_RY, OP_RZ};

/// A wide sparse register may gather so many doublings of its list.
constexpr unsigned long most_doublings = 9;
constexpr unsigned long narrow_sparse = 10;

class Writer {
  public:
    Writer(Engine engine, unsigned long qubits, RandomWords& random, std::span<const double> angles)
        : engine_(engine),
          qubits_(qubits),
          random_(random),
          angles_(angles),
          doublings_(engine == Engine::sparse && qubits > narrow_sparse ? most_doublings : ~0UL) {}

    void append(std::vector<QPUOp>& records) {
        switch (random_.below(16)) {
            case 0:
                return append_measurement(records);
            case 1:
                return append_product(records, OP_PPR);
            case 2:
                if (random_.one_in(2)) return append_product(records, OP_PPM);
                [[fallthrough]];
            case 3:
                return append_flags(records);
            case 4:
                return append_jump(records);
            case 5:
            case 6:
            case 7:
            case 8:
                return append_gate(records, rotations[random_.below(std::size(rotations))]);
            default:
                return append_gate(records, plain_gates[random_.below(std::size(plain_gates))]);
        }
    }

  private:
    static bool doubles_the_list(unsigned long opcode) {
        switch (opcode) {
            case OP_X:
            case OP_LELBOW:
            case OP_RELBOW:
            case OP_SWAP:
            case OP_Z:
            case OP_S:
            case OP_S_INV:
            case OP_T:
            case OP_T_INV:
            case OP_PHASE:
                return false;
            default:
                return true;
        }
    }

    double angle() { return angles_[random_.below(angles_.size())]; }
    long condition() {
        if (!random_.one_in(8)) return 0;
        const long flag = 2 + static_cast<long>(random_.below(6));
        return random_.one_in(2) ? flag : -flag;
    }
    unsigned long mask(unsigned long most) {
        const unsigned long count = 1 + random_.below(most);
        return random_.bits(count, qubits_);
    }
    unsigned long subset(unsigned long mask) { return mask & random_.next(); }

    void append_gate(std::vector<QPUOp>& records, unsigned long opcode) {
        QPUOp op{};
        op.opcode = opcode;
        op.target_mask = opcode == OP_SWAP ? random_.bits(2, qubits_) : mask(2);
        if (doubles_the_list(opcode)) {
            op.target_mask &= 0UL - op.target_mask;
            if (doublings_ == 0) return;
            --doublings_;
        }
        if (random_.one_in(2)) op.cond_mask = mask(3) & ~op.target_mask;
        op.cond_neg_mask = random_.one_in(3) ? subset(op.cond_mask) : 0;
        op.angle = angle();
        op.cond_flag = condition();
        records.push_back(op);
    }

    void append_product(std::vector<QPUOp>& records, unsigned long opcode) {
        if (doublings_ == 0) return;
        doublings_ -= doublings_ == ~0UL ? 0 : 1;
        QPUOp op{};
        op.opcode = opcode;
        op.target_mask = mask(3);
        op.cond_mask = mask(3);
        const unsigned long controls = mask(2) & ~op.target_mask & ~op.cond_mask;
        op.cond_flag = condition();
        if (opcode == OP_PPR) {
            op.angle = angle();
            op.read_flag = random_.one_in(3) ? static_cast<long>(controls) : 0;
        } else {
            op.angle = random_.one_in(2) ? 1.0 : -1.0;
            op.read_flag = 2 + static_cast<long>(random_.below(60));
        }
        records.push_back(op);
    }

    void append_measurement(std::vector<QPUOp>& records) {
        constexpr unsigned long measurements[] = {OP_READ, OP_READ, OP_WRITE, OP_CLEAR, OP_FREE};
        QPUOp op{};
        op.opcode = measurements[random_.below(std::size(measurements))];
        op.target_mask = mask(3);
        const long flag = 2 + static_cast<long>(random_.below(60));
        op.read_flag = op.opcode == OP_FREE ? 0 : flag;
        if (op.opcode == OP_WRITE) {
            op.cond_mask = random_.next() & ((1UL << qubits_) - 1);
            op.target_offset = engine_ == Engine::sparse ? static_cast<unsigned long>(flag) : 0;
        }
        records.push_back(op);
    }

    void append_flags(std::vector<QPUOp>& records) {
        QPUOp op{};
        op.opcode = OP_FLAG_NAND;
        op.target_mask = random_.below(20);
        op.cond_mask = random_.below(20);
        op.read_flag = 2 + static_cast<long>(random_.below(20));
        op.cond_flag = condition();
        records.push_back(op);
    }

    /// A jump over one gate.
    void append_jump(std::vector<QPUOp>& records) {
        QPUOp op{};
        op.opcode = OP_JUMP_FWD;
        op.target_mask = 1 + random_.below(5);
        op.cond_flag = condition();
        records.push_back(op);
        append_gate(records, OP_H);
        op.opcode = OP_LABEL;
        op.cond_flag = 0;
        records.push_back(op);
    }

    const Engine engine_;
    const unsigned long qubits_;
    RandomWords& random_;
    const std::span<const double> angles_;
    unsigned long doublings_;  ///< that are left
};

/// Amplitudes of all sizes, among them zeros of both signs.
std::vector<complex_t> uneven_amplitudes(unsigned long count, RandomWords& random) {
    std::vector<complex_t> state(count);
    for (complex_t& amplitude : state) {
        const unsigned long kind = random.below(16);
        const double scale = kind < 2 ? 0x1p-300 : 1.0;
        amplitude.re = kind == 3 ? 0.0 : random.plus_minus() * scale;
        amplitude.im = kind == 3 ? 0.0 : random.plus_minus() * scale;
        if (kind == 4) amplitude = {-0.0, 0.0};
    }
    return state;
}

}  // namespace

Program make_state_vector_program(Engine engine, unsigned long qubits, RandomWords& random,
                                  std::span<const double> angles) {
    constexpr unsigned long widest_pushed = 10;
    Program program{.engine = engine, .qubits = qubits, .start = {}, .chunks = {}};
    const unsigned long fewest_block_qubits = qubits > 4 ? qubits - 4 : 1;
    program.block_qubits = fewest_block_qubits + random.below(qubits - fewest_block_qubits + 1);
    program.threads = random.one_in(2);
    program.seed = static_cast<unsigned>(random.next());
    if (qubits <= widest_pushed && random.one_in(2)) {
        program.start = uneven_amplitudes(1UL << qubits, random);
    }
    Writer writer(engine, qubits, random, angles);
    const unsigned long records_in_chunk = 10 + random.below(20);
    for (unsigned chunk = 0; chunk < 3; ++chunk) {
        Program::Chunk made;
        while (made.records.size() < records_in_chunk) writer.append(made.records);
        made.qubit = random.below(qubits);
        made.value = random.below(2);
        program.chunks.push_back(made);
    }
    return program;
}

Program make_gate_program(Engine engine, unsigned long qubits, RandomWords& random,
                          std::span<const double> angles) {
    const auto measures = [](const QPUOp& op) {
        return op.opcode == OP_READ || op.opcode == OP_WRITE || op.opcode == OP_CLEAR ||
               op.opcode == OP_FREE || op.opcode == OP_PPM;
    };
    Program program = make_state_vector_program(engine, qubits, random, angles);
    for (Program::Chunk& chunk : program.chunks) std::erase_if(chunk.records, measures);
    return program;
}

}  // namespace Nimbrel::Testing
