#include "bf/EngineFactory.h"

#include "bf/CML.h"
#include "bf/CMSNR.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/LCMV.h"

namespace BF {

namespace {

/// GSS or one of its kin.
template <class Algorithm>
std::unique_ptr<BF> geometric(const EngineParameters& p, int K, int rate, double c) {
  return std::make_unique<Algorithm>(K, rate, c, p.lcAdaptive, p.mu, p.ssAdaptive, p.mu_ss, p.scale,
                                     p.nlFuncType);
}

}  // namespace

std::unique_ptr<BF> makeEngine(BfAlgorithmType algorithm, const EngineParameters& p, int K,
                               int rate, double c) {
  switch (algorithm) {
    case BF_ALGORITHM_DS:
      return std::make_unique<DS>(K, rate, c);
    case BF_ALGORITHM_WDS:
      return std::make_unique<WDS>(K, rate, c);
    case BF_ALGORITHM_NULL:
      return std::make_unique<Null>(K, rate, c);
    case BF_ALGORITHM_ILSE:
      return std::make_unique<ILSE>(K, rate, c);
    case BF_ALGORITHM_LCMV:
      return std::make_unique<LCMV>(K, rate, c, p.lcAdaptive, p.mu);
    case BF_ALGORITHM_GJ:
      return std::make_unique<GJ>(K, rate, c, p.lcAdaptive, p.mu);
    case BF_ALGORITHM_CMSNR:
      return std::make_unique<CMSNR>(K, rate, c, p.decompositionAlgorithm, p.alpha);
    case BF_ALGORITHM_GSS:
      return geometric<GSS>(p, K, rate, c);
    case BF_ALGORITHM_GICA:
      return geometric<GICA>(p, K, rate, c);
    case BF_ALGORITHM_GHDSS:
      return geometric<GHDSS>(p, K, rate, c);
    case BF_ALGORITHM_CML:
      return std::make_unique<CML>(K, rate, c, p.regFactor);
  }
  throw InvalidStateException();
}

}  // namespace BF
