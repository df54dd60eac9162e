#pragma once

#include <boost/numeric/ublas/matrix.hpp>
#include <boost/numeric/ublas/vector.hpp>
#include <complex>
#include <memory>
#include <utility>

namespace BF {

/// The standard allocator with the members construct and destroy, which uBLAS's storage calls and
/// C++20 took away.
template <typename T>
class KernelAllocator : public std::allocator<T> {
 public:
  template <typename Other>
  struct rebind {  // NOLINT(readability-identifier-naming): the standard's name
    using other = KernelAllocator<Other>;
  };

  KernelAllocator() = default;
  template <typename Other>
  KernelAllocator(const KernelAllocator<Other>&) {}

  template <typename... Arguments>
  void construct(T* place, Arguments&&... arguments) {
    std::construct_at(place, std::forward<Arguments>(arguments)...);
  }
  void destroy(T* place) { std::destroy_at(place); }
};

template <typename T>
using KernelStorage = boost::numeric::ublas::unbounded_array<T, KernelAllocator<T>>;

/// Dense row-major complex matrix, the decomposition kernels' matrix type.
template <typename T>
using KernelMatrix =
    boost::numeric::ublas::matrix<std::complex<T>, boost::numeric::ublas::row_major,
                                  KernelStorage<std::complex<T>>>;

/// Dense real vector, the decomposition kernels' vector type.
template <typename T>
using KernelVector = boost::numeric::ublas::vector<T, KernelStorage<T>>;

}  // namespace BF
