// Programs on the Clifford filter. They draw nothing, because the clock seeds its draws: whoever
// runs them makes each measured qubit certain first.
#include "filter/opcodes.h"
#include "processors/program.h"

namespace Nimbrel::Testing {
namespace {

class Writer {
  public:
    Writer(unsigned long qubits, RandomWords& random) : qubits_(qubits), random_(random) {}

    void append(std::vector<QPUOp>& records) {
        QPUOp op{};
        const unsigned long a = random_.below(qubits_);
        const unsigned long b = random_.below(qubits_);
        set_target(op, a);
        switch (random_.below(12)) {
            case 0:
                op.opcode = OP_H;
                break;
            case 1:
                op.opcode = OP_S;
                break;
            case 2:
                op.opcode = OP_S_INV;
                break;
            case 3:
                op.opcode = OP_Y;
                break;
            case 4:
                op.opcode = OP_X;
                break;
            case 5:
                op.opcode = random_.one_in(2) ? OP_RZ : OP_PHASE;
                op.angle = static_cast<double>(random_.below(4)) * 90.0 - 90.0;
                if (op.angle == 0.0) return;
                break;
            case 6:
                return append_product(records);
            case 7:
                return append_swap(records);
            case 8:
                if (a == b) return;
                op.opcode = OP_Z;
                set_control(op, b);
                break;
            default:
                // A control that is its own target changes the form in which the tableau is stored.
                if (a == b && !random_.one_in(4)) return;
                op.opcode = OP_X;
                set_control(op, b);
        }
        records.push_back(op);
    }

  private:
    void set_target(QPUOp& op, unsigned long qubit) {
        op.target_offset = qubit - random_.below(qubit < 63 ? qubit + 1 : 63);
        op.target_mask = 1UL << (qubit - op.target_offset);
    }
    static void set_control(QPUOp& op, unsigned long qubit) {
        op.cond_offset = qubit;
        op.cond_mask = 1;
    }

    /// The first word of a product has the offset 0.
    void append_product(std::vector<QPUOp>& records) {
        const unsigned long width = qubits_ < 64 ? qubits_ : 64;
        QPUOp op{};
        op.opcode = OP_PPR;
        op.target_mask = random_.bits(1 + random_.below(3), width);
        op.cond_mask = random_.bits(1 + random_.below(3), width);
        op.angle = static_cast<double>(random_.below(9)) * 45.0 - 180.0;
        records.push_back(op);
    }

    void append_swap(std::vector<QPUOp>& records) {
        const unsigned long width = qubits_ < 64 ? qubits_ : 64;
        const unsigned long a = random_.below(width);
        const unsigned long b = random_.below(width);
        if (a == b) return;
        QPUOp op{};
        op.opcode = OP_SWAP;
        op.target_mask = 1UL << a | 1UL << b;
        records.push_back(op);
    }

    const unsigned long qubits_;
    RandomWords& random_;
};

}  // namespace

Program make_clifford_program(RandomWords& random) {
    const unsigned long widest = random.one_in(8) ? 300 : 80;
    Program program{
        .engine = Engine::clifford, .qubits = 1 + random.below(widest), .start = {}, .chunks = {}};
    Writer writer(program.qubits, random);
    const unsigned long records = 20 + random.below(3 * program.qubits);
    for (unsigned chunk = 0; chunk < 6; ++chunk) {
        Program::Chunk made;
        for (unsigned long record = 0; record < records; ++record) writer.append(made.records);
        made.qubit = random.below(program.qubits < 64 ? program.qubits : 64);
        made.value = random.below(2);
        program.chunks.push_back(made);
    }
    return program;
}

}  // namespace Nimbrel::Testing
