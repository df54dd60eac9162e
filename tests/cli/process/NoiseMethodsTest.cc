// From a recording to separated sound by the command: the methods that learn what the noise is must
// take it out.

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

constexpr std::size_t SAMPLES = 64000;
constexpr std::size_t START = 32000;  // where the target begins; the other one is always there

double product(const std::vector<float>& a, const std::vector<float>& b) {
  return std::inner_product(a.begin() + START, a.begin() + SAMPLES, b.begin() + START, 0.0);
}

/// How much stronger than everything else the target is in a sound, in dB, whatever its level.
double purity(const std::vector<float>& sound, const std::vector<float>& target) {
  const double own = std::pow(product(sound, target), 2) / product(target, target);
  return 10 * std::log10(own / (product(sound, sound) - own));
}

class NoiseMethods : public Talkers {
 protected:
  std::vector<float> firstChannel(const std::string& name) const {
    const Sound file = sound(name);
    std::vector<float> first;
    for (std::size_t n = 0; n < file.samples.size(); n += file.channels) {
      first.push_back(file.samples[n]);
    }
    return first;
  }
};

TEST_F(NoiseMethods, TakeTheLearntNoiseOut) {
  std::vector<float> target = noise(SAMPLES, 70);
  std::fill(target.begin(), target.begin() + START, 0.0F);
  writeSound(folder / "a.wav", RATE, 1, target);
  writeSound(folder / "b.wav", RATE, 1, noise(SAMPLES, 80));
  const CommandRun mixing = run("mix scene.json --tf array.sofa -o m.wav --dry a.wav b.wav");
  ASSERT_EQ(mixing.status, 0) << mixing.errors;
  const std::vector<float> image = firstChannel("m-source3.wav");
  const double before = purity(firstChannel("m.wav"), image);
  folder.write("late.json", R"({"sources": [{"id": 3, "azimuth": 45, "active": [[2, 9]]}]})");

  const struct {
    std::string options;
    const std::vector<float>& reference;
    double least;
    double most;
  } cases[] = {{"--method ML --noise-from 0:1.9", target, 15, 100},
               {"--method ML", target, 15, 100},  // noise is what is there while nobody is active
               {"--method ML --half-frame-shift off", target, -100, 0},
               // Has an arbitrary scale per bin, which is no sound before it is projected back.
               {"--method MSNR", image, before + 8, 100}};
  for (const auto& [options, reference, least, most] : cases) {
    SCOPED_TRACE(options);
    const CommandRun separation = run(
        "separate m.wav --tf array.sofa --sources late.json --format FLOAT --advance 128 --force "
        "-o out " +
        options);
    ASSERT_EQ(separation.status, 0) << separation.errors;
    const double after = purity(sound("out/source_3.wav").samples, reference);
    EXPECT_GE(after, least);
    EXPECT_LE(after, most);
  }
}

}  // namespace
