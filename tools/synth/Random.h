// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A deterministic random source for the generators: the same seed gives the same
/// numbers on every machine and library (no std:: distributions, whose output may differ).
#pragma once
#include <cmath>
#include <cstdint>

namespace astrivelle::synth {

/// xoshiro256** seeded by splitmix64.
class Random {
public:
    explicit Random(std::uint64_t seed) {
        for (auto& s : state_) {
            seed += 0x9e3779b97f4a7c15ULL;
            std::uint64_t z = seed;
            z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
            z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
            s = z ^ (z >> 31);
        }
    }

    /// A generator for one stream of a seed (one frame, one row...), independent of the
    /// order in which streams are used, so parallel loops stay deterministic.
    static Random Stream(std::uint64_t seed, std::uint64_t stream) {
        return Random(seed * 0x2545f4914f6cdd1dULL + stream * 0x9e3779b97f4a7c15ULL + 1);
    }

    std::uint64_t Next() {
        const std::uint64_t result = Rotl(state_[1] * 5, 7) * 9;
        const std::uint64_t t = state_[1] << 17;
        state_[2] ^= state_[0];
        state_[3] ^= state_[1];
        state_[1] ^= state_[2];
        state_[0] ^= state_[3];
        state_[2] ^= t;
        state_[3] = Rotl(state_[3], 45);
        return result;
    }

    /// Uniform in [0, 1).
    double Uniform() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

    /// Uniform in [lo, hi).
    double Uniform(double lo, double hi) { return lo + (hi - lo) * Uniform(); }

    /// Standard normal by Box-Muller (one value per call; the pair's second is dropped so
    /// that every call consumes the same amount of the stream).
    double Normal() {
        double u1 = Uniform();
        if (u1 < 1e-300)
            u1 = 1e-300;
        const double u2 = Uniform();
        return std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
    }

    /// Poisson of mean `lambda`: exact by multiplication below 30, normal approximation
    /// (rounded, never negative) above.
    double Poisson(double lambda) {
        if (lambda <= 0)
            return 0;
        if (lambda < 30) {
            const double limit = std::exp(-lambda);
            double p = Uniform();
            int k = 0;
            while (p > limit) {
                p *= Uniform();
                ++k;
            }
            return k;
        }
        const double v = std::floor(lambda + std::sqrt(lambda) * Normal() + 0.5);
        return v < 0 ? 0 : v;
    }

private:
    static std::uint64_t Rotl(std::uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
    std::uint64_t state_[4];
};

} // namespace astrivelle::synth
