#pragma once

#include <complex>
#include <memory>
#include <vector>

#include "bf/BF.h"

namespace BF {

/// The non-linear function φ of the separation criterion. Any other value switches the separation
/// term off.
enum NlFuncType : int {
  NL_FUNC_TANH = 1,  ///< φ(y) = tanh(scale · |y|) · y / |y|, 0 for |y| < BF_EPS
  NL_FUNC_CUBIC = 2  ///< φ(y) = y · |y|²
};

/// Geometric source separation (Parra & Alvino 2002: a separation criterion under the geometric
/// constraint W · A = I as a penalty, here its diagonal only). Every frame each bin's W takes a
/// gradient step that drives the outputs towards independence (separation term; with a non-linear
/// function of the outputs as in independent-component analysis, Hyvärinen, Karhunen & Oja 2001)
/// and holds each output's gain towards its own source at one (constraint term):
///   W ← W − μ_ss · J_ss − μ_lc · J_lc
///   J_ss = E_ss · W, E_ss the off-diagonal part of φ(y) · yᴴ
///   J_lc = E_lc · Aᴴ, E_lc the diagonal part of W · A − I
/// A computed step is the multiplier times ‖E‖² / 2 over a squared gradient (formulas in GSS.cc).
///
/// Rows of sources that stay (by id) are carried over, rows of new ones start from weighted
/// delay-and-sum. Only GICA has an update rule: the adaptation of GSS and GHDSS throws
/// InvalidStateException before anything changes.
class GSS : public BF {
 public:
  /// lcAdaptive (ssAdaptive): the step of the constraint (separation) term is computed for every
  /// bin and frame and mu (mu_ss) multiplies it; otherwise mu (mu_ss) is the step. scale: input
  /// scaling of the tanh. The other arguments as in BF.
  GSS(int numFreq, int samplingRate, double soundSpeed, bool lcAdaptive, double mu, bool ssAdaptive,
      double mu_ss, double scale, NlFuncType nlFuncType);

  ~GSS() override;

  int getBfAlgorithmType() const override { return BF_ALGORITHM_GSS; }
  void updateSources(const std::vector<SourceLocation>& newSources) override;
  void adaptSeparationMatrices() override;

  NlFuncType nlFuncType;  ///< φ of the separation term
  double mu;              ///< step of the constraint term, or its multiplier
  double mu_ss;           ///< step of the separation term, or its multiplier
  double scale;           ///< of the outputs inside the tanh
  bool lcAdaptive;        ///< whether the constraint term's step is computed
  bool ssAdaptive;        ///< whether the separation term's step is computed

 private:
  struct Bin;
  struct Work;
  bool fitTheLanes(int N, int M) const;
  void adaptBins(int first, int end, int member);
  void adaptBin(int k, Bin& bin, Matrix& newW) const;
  static void constraintGradient(const Matrix& W, const Matrix& A, Bin& bin);
  void separationGradient(const Matrix& W, Bin& bin) const;
  void requireUpdateRule() const;
  std::complex<double> nonLinear(const std::complex<double>& y) const;
  double constraintStep(const Bin& bin) const;
  double separationStep(Bin& bin) const;

  std::unique_ptr<Work> work;  // what is kept from step to step
};

/// Geometric source separation with the independent-component update rule.
class GICA : public GSS {
 public:
  using GSS::GSS;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_GICA; }
};

/// A variant without an update rule of its own. Announces its settings on standard output when it
/// is built.
class GHDSS : public GSS {
 public:
  /// As in GSS.
  GHDSS(int numFreq, int samplingRate, double soundSpeed, bool lcAdaptive, double mu,
        bool ssAdaptive, double mu_ss, double scale, NlFuncType nlFuncType);
  int getBfAlgorithmType() const override { return BF_ALGORITHM_GHDSS; }
};

}  // namespace BF
