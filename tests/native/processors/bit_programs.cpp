// Programs on the bit filter, on registers of several words.
#include "filter/opcodes.h"
#include "processors/program.h"
#include "support/bits.h"

namespace Nimbrel::Testing {
namespace {

class Writer {
  public:
    Writer(unsigned long qubits, RandomWords& random)
        : words_(words_for_bits(qubits)), random_(random) {}

    void append(std::vector<QPUOp>& records) {
        constexpr unsigned long opcodes[] = {
            OP_X,    OP_X,     OP_X,     OP_SWAP, OP_LELBOW,    OP_RELBOW, OP_H,
            OP_READ, OP_WRITE, OP_CLEAR, OP_FREE, OP_FLAG_NAND, OP_EXTEND, OP_EXTEND};
        QPUOp op{};
        op.opcode = opcodes[random_.below(std::size(opcodes))];
        // A swap takes two targets, so none may come from an extension.
        const bool extended = !records.empty() && records.back().opcode == OP_EXTEND;
        if (op.opcode == OP_SWAP && extended) op.opcode = OP_X;
        op.target_mask = op.opcode == OP_SWAP ? two_bits() : masks();
        op.target_offset = offset();
        const unsigned long controls = masks();
        op.cond_mask = random_.one_in(2) ? controls : 0;
        op.cond_offset = offset();
        if (op.cond_offset == op.target_offset && op.opcode != OP_WRITE) {
            op.cond_mask &= ~op.target_mask;
        }
        op.cond_neg_mask = op.cond_mask & random_.next();
        const long flag = 2 + static_cast<long>(random_.below(30));
        op.read_flag = random_.one_in(4) ? -flag : flag;
        const long condition = 2 + static_cast<long>(random_.below(30));
        if (random_.one_in(6)) op.cond_flag = random_.one_in(2) ? condition : -condition;
        if (op.opcode == OP_FLAG_NAND) {
            op.target_mask = random_.below(30);
            op.cond_mask = random_.below(30);
        }
        records.push_back(op);
    }

  private:
    unsigned long masks() {
        const unsigned long count = 1 + random_.below(4);
        return random_.bits(count, 64);
    }
    unsigned long two_bits() {
        const unsigned long first = random_.below(64);
        const unsigned long second = (first + 1 + random_.below(63)) % 64;
        return 1UL << first | 1UL << second;
    }
    unsigned long offset() { return random_.below(words_) * bits_per_word; }

    const unsigned long words_;
    RandomWords& random_;
};

}  // namespace

Program make_bit_program(RandomWords& random) {
    Program program{
        .engine = Engine::bit, .qubits = 1 + random.below(300), .start = {}, .chunks = {}};
    Writer writer(program.qubits, random);
    for (unsigned chunk = 0; chunk < 3; ++chunk) {
        Program::Chunk made;
        for (unsigned record = 0; record < 40; ++record) writer.append(made.records);
        made.qubit = random.below(program.qubits < 64 ? program.qubits : 64);
        made.value = random.below(2);
        program.chunks.push_back(made);
    }
    return program;
}

}  // namespace Nimbrel::Testing
