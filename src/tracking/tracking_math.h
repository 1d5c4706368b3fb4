// Small numeric helpers shared by the tracking core.
#pragma once

inline constexpr double tracking_pi = 3.14159265358979323846;

// Limits value to [low, high]; the upper bound is tested first.
inline float tracking_clamp(float value, float low, float high)
{
        if (value > high)
                return high;
        if (value < low)
                return low;
        return value;
}
