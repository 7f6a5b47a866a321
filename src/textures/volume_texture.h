#pragma once

// Fractal sums of noise, configured by setters and evaluated at a point:
// the engines behind the noise texture nodes. A texture object is cheap, is
// set up by its owner before a batch and is not changed during it;
// evaluation only reads it and the noise tables, so many threads may share
// one.

#include <cstdint>

#include "host/types.h"

class TvolumeTexture {
public:
    TvolumeTexture() = default;
    virtual ~TvolumeTexture();

    // The sum over `harmonics` octaves at a point, and its two-axis form.
    virtual float getValue(float x, float y, float z, float time) const;
    virtual float getValue2(float u, float v, float time) const;
    // One octave's noise; the base has none.
    virtual float getNoise(float x, float y, float z, float time, int octave) const;
    virtual float getNoise2(float u, float v, float time, int octave) const;

    void setOrigin(const T3Float& v) { origin = v; }
    void setRotate(const T3Float& degrees) { rotate = degrees; }
    void setOffset(const T3Float& v) { offset = v; }
    // A zero component would divide by zero: it becomes 1e-5.
    void setScale(const T3Float& v);
    void setGain(float v) { gain = v; }
    void setThreshold(float v) { threshold = v; }
    void setHarmonics(int16_t v) { harmonics = v; }
    void setRatio(float v) { ratio = v; }
    void setAmpRatio(float v) { ampRatio = v; }
    void setFrequency(float v) { frequency = v; }
    void setAbsolute(bool v) { absolute = v; }
    void setImplodeCenter(const T3Float& v) { implodeCenter = v; }
    void setImplode(float v) { implode = v; }

    // Below this a ratio counts as zero, and its reciprocal is this factor.
    static constexpr float kSmallRatio = 1e-5f;
    static constexpr float kSmallRatioFactor = 100000.0f;

    T3Float origin{0.0f, 0.0f, 0.0f};
    T3Float rotate{0.0f, 0.0f, 0.0f};
    T3Float offset{0.0f, 0.0f, 0.0f};
    T3Float scale{1.0f, 1.0f, 1.0f};
    float gain = 1.0f;
    float threshold = 0.0f;
    int16_t harmonics = 1;
    float ratio = 0.5f;
    float ampRatio = 0.5f;
    float frequency = 1.0f;
    bool absolute = false;
    T3Float implodeCenter{0.0f, 0.0f, 0.0f};
    float implode = 0.0f;

protected:
    // The frequency factor between octaves: 1 / ratio.
    float octaveFactor() const { return ratio > kSmallRatio ? 1.0f / ratio : kSmallRatioFactor; }
    // Pulls (or pushes) the point towards implodeCenter.
    void applyImplode(float& x, float& y, float& z) const;
    void applyImplode2(float& u, float& v) const;
    // About z, then y, then x, in degrees; zero angles are skipped.
    void applyRotate(float& x, float& y, float& z) const;
    // The two-axis form: only rotate.x, about the normal of the plane.
    void applyRotate2(float& u, float& v) const;
};

class TperlinTexture : public TvolumeTexture {
public:
    float getValue(float x, float y, float z, float time) const override;
    float getValue2(float u, float v, float time) const override;
    float getNoise(float x, float y, float z, float time, int octave) const override;
    // The plane z = 0 of the three-axis noise.
    float getNoise2(float u, float v, float time, int octave) const override;
    // The "Wispy" noise: the point is pushed along the octave's direction by
    // a slower noise, and half the push carries over to the caller's point.
    float getSmearNoise(float& x, float& y, float& z, float ox, float oy, float oz, float time,
                        int octave) const;

    void setDoSmear(bool v) { doSmear = v; }
    void setAnimated(bool v) { animated = v; }
    void setTimeSteps(int v) { timeSteps = v; }

    bool doSmear = false;
    bool animated = false;
    int timeSteps = 100;

    // The unit direction an octave drifts along.
    static T3Float octaveDirection(int octave);

private:
    float harmonicSum(float (&q)[3], float time) const;
};

class TbillowTexture : public TvolumeTexture {
public:
    enum FalloffType : int16_t { kLinear = 0, kSmooth = 1, kFast = 2, kBubble = 3 };

    float getValue(float x, float y, float z, float time) const override;
    float getValue2(float u, float v, float time) const override;
    // Blobs on a 20 by 20 by 20 grid, one per cell; the octave does not
    // change them.
    float getNoise(float x, float y, float z, float time, int octave) const override;
    float getNoise2(float u, float v, float time, int octave) const override;

    void setDensity(float v) { density = v; }
    void setSpottyness(float v) { spottyness = v; }
    void setRandomness(float v) { randomness = v; }
    void setSizeRand(float v) { sizeRand = v; }
    void setFalloff(FalloffType v) { falloff = v; }

    float density = 1.0f;
    float spottyness = 0.0f;
    float randomness = 1.0f;
    float sizeRand = 0.0f;
    FalloffType falloff = kLinear;

    static constexpr int kGrid = 20;

private:
    float blob(float e, float sizeTerm, float spotTerm) const;
};

class TcosTexture : public TvolumeTexture {
public:
    // The mean of nWaves plane waves in table directions with table phases.
    float getNoise(float x, float y, float z, float time, int octave) const override;
    float getNoise2(float u, float v, float time, int octave) const override;

    void setNWaves(int16_t v) { nWaves = v; }

    int16_t nWaves = 5;
};
