#pragma once

class DesktopAppearance;

// Set-up shared by the program and the tools that show its windows.

// Before the application object exists: software rendering (unless
// QT_QUICK_BACKEND asks otherwise).
void prepareGraphics();

// After it exists: names, desktop file name, style, window icon and the
// appearance override.
void setUpApplication();

// NIMBRELL_APPEARANCE=dark or light replaces the desktop's palette with one of
// the program's own; otherwise the desktop decides.
void applyAppearanceOverride();
void applyAppearance(bool dark);

// The desktop's light or dark preference (the desktop portal's), followed as
// it changes, where the platform's palette does not already say it. An
// appearance chosen with NIMBRELL_APPEARANCE stays.
void followDesktopAppearance(DesktopAppearance &appearance);
