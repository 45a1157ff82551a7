// Wm4::ColorRGB: three float channels in [0, 1] by convention (not enforced
// until Clamp is called).
#pragma once

namespace Wm4 {

class ColorRGB {
public:
    ColorRGB() : m_afTuple{0.0f, 0.0f, 0.0f} {}
    ColorRGB(float r, float g, float b) : m_afTuple{r, g, b} {}

    float& operator[](int i) { return m_afTuple[i]; }
    float operator[](int i) const { return m_afTuple[i]; }
    float& R() { return m_afTuple[0]; }
    float R() const { return m_afTuple[0]; }
    float& G() { return m_afTuple[1]; }
    float G() const { return m_afTuple[1]; }
    float& B() { return m_afTuple[2]; }
    float B() const { return m_afTuple[2]; }

    bool operator==(const ColorRGB& c) const { return R() == c.R() && G() == c.G() && B() == c.B(); }
    bool operator!=(const ColorRGB& c) const { return !(*this == c); }
    ColorRGB operator+(const ColorRGB& c) const { return {R() + c.R(), G() + c.G(), B() + c.B()}; }
    ColorRGB operator*(float s) const { return {R() * s, G() * s, B() * s}; }

    // Clamps every channel to [0, 1].
    void Clamp()
    {
        for (float& v : m_afTuple)
            v = v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
    }

    static const ColorRGB BLACK;
    static const ColorRGB WHITE;

private:
    float m_afTuple[3];
};

inline const ColorRGB ColorRGB::BLACK(0.0f, 0.0f, 0.0f);
inline const ColorRGB ColorRGB::WHITE(1.0f, 1.0f, 1.0f);

}  // namespace Wm4
