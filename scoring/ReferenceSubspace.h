#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

/// All signals that filters of T taps can make of a set of reference signals:
///   y(n) = Σ_i Σ_d h_i(d) · s_i(n − d),  d = −⌊(T − 1)/2⌋ … ⌊T/2⌋.
///
/// Nearest members are found by regularised least squares: the squared taps h_i(d) · ‖s_i‖, times
/// δ, are added to the squared distance. This is as if every reference carried white noise of δ of
/// its energy (10⁻¹³ times the Frobenius norm of the normalised Gram matrix, so at most 10⁻¹³ · N ·
/// T), and keeps the filters from amplifying what a reference has only as rounding errors, such as
/// the frequencies above its band. For every filter h the nearest member found is at most
/// δ · Σ h² · ‖s‖² further away, in energy, than the one that h makes.
class ReferenceSubspace {
 public:
  using Signal = std::vector<double>;

  /// Signals of one length L, none of them silent, which must outlive this; taps ≥ 1. Takes a
  /// time that grows with (signals · taps)³ and a square matrix of that many rows.
  ReferenceSubspace(std::vector<const Signal*> signals, int taps);

  /// Share of signal i's energy that no filters make of the signals before it, 0 … 1 + δ.
  double ownShare(std::size_t i) const;

  /// x (L samples) among zeros, as all members are: L + T − 1 samples, ⌊(T − 1)/2⌋ of them before.
  Signal padded(const Signal& x) const;

  /// The member nearest to x. Both have L + T − 1 samples.
  Signal project(const Signal& x) const;

  /// The energy of that member, in O((signals · taps)²) without making it.
  double explainedEnergy(const Signal& x) const;

 private:
  void factor();
  Eigen::VectorXd innerProducts(const Signal& x) const;
  Eigen::VectorXd solve(Eigen::VectorXd b) const;

  std::vector<const Signal*> references;
  std::vector<double> scales;  // 1 / ‖s_i‖
  int T;
  Eigen::MatrixXd L;  // in its lower triangle
};
