// Measures that all windows share. Pixels.
#pragma once

#include <FL/Enumerations.H>

namespace tallowin::layout {

inline constexpr unsigned char kBackgroundRed = 182;
inline constexpr unsigned char kBackgroundGreen = 198;
inline constexpr unsigned char kBackgroundBlue = 255;

inline constexpr int kMargin = 10;   // between a window's edge and what is in it
inline constexpr int kGap = 8;       // between neighbours
inline constexpr int kLabelGap = 4;  // between a label and its field

inline constexpr int kFontSize = 12;
inline constexpr int kSmallFontSize = 11;    // buttons of the main window's columns
inline constexpr int kSmallestFontSize = 9;  // down to which a text shrinks to fit
inline constexpr int kLineHeight = 18;

inline constexpr int kButtonWidth = 80;
inline constexpr int kButtonHeight = 25;
inline constexpr int kFieldHeight = 23;

inline constexpr int kIconSize = 50;
inline constexpr int kIconFontSize = 34;

// How long the mouse rests on a disabled control before the reason is shown. Seconds.
inline constexpr double kHintDelay = 0.5;

}  // namespace tallowin::layout
