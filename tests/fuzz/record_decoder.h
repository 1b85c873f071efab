/// Records from the bytes of a fuzzer's input.
///
/// Most records are meaningful: a known opcode, qubits of a small register, small flag numbers,
/// angles that programs use. Some fields are hostile: any opcode, full masks, flags at the ends of
/// their range, offsets far outside the register, not-a-numbers.
#pragma once

#include <span>

#include "byte_reader.h"
#include "filter/qpu_op.h"

namespace Nimbrel::Fuzzing {

/// How records of one filter are drawn.
struct RecordShape {
    unsigned long qubits = 1;                         ///< the usual size of the register
    std::span<const unsigned long> sizes = {};        ///< other sizes of a reset
    unsigned long words = 1;                          ///< 64-qubit words that offsets name
    std::span<const unsigned long> near_qubits = {};  ///< if not empty, the qubits that gates use
};

/// A record, and whether the call that it comes in ends behind it.
struct DecodedRecord {
    QPUOp op;
    bool ends_call;
};

/// A record whose first byte has been read. `first` chooses opcode and end of the call.
DecodedRecord decode_record(unsigned first, ByteReader& in, const RecordShape& shape);

/// Values that calls and records share.
unsigned long decode_mask(ByteReader& in, const RecordShape& shape, unsigned kind);
double decode_angle(ByteReader& in);
long decode_flag(ByteReader& in);

}  // namespace Nimbrel::Fuzzing
