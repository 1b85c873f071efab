/// `ZeroedWords`, the memory of a tableau.
///
/// Not thread-safe.
#pragma once

#include <cstddef>

/// Words of memory that are 0 at first, from a multiple of 64 bytes on.
///
/// Large memory is mapped: then it is 0 without being written, in huge pages where the system has
/// them, and goes back to the system with this object.
class ZeroedWords {
  public:
    /// Throws std::bad_alloc.
    explicit ZeroedWords(std::size_t words);
    ~ZeroedWords();
    ZeroedWords(const ZeroedWords&) = delete;
    ZeroedWords& operator=(const ZeroedWords&) = delete;

    unsigned long* first() const { return first_; }

  private:
    void allocate(std::size_t bytes);
    void map(std::size_t bytes);

    void* memory_ = nullptr;
    std::size_t mapped_bytes_ = 0;  ///< 0 if the memory comes from the C library
    unsigned long* first_ = nullptr;
};
