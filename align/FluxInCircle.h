// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The exact area of a unit pixel square inside a circle, and the flux of a star window
/// inside a circle, for the half-flux diameter.
///
/// Coordinates are relative to the circle's centre with y pointing up. A pixel square is
/// [x0, x1] x [y0, y1]; its corners are numbered counter-clockwise from the bottom left:
/// V1 (x0, y0), V2 (x1, y0), V3 (x1, y1), V4 (x0, y1). A square that lies in one quadrant
/// (I: x >= 0, y >= 0; II: x <= 0, y >= 0; III: x <= 0, y <= 0; IV: x >= 0, y <= 0) always
/// has its corner nearest the centre inside the circle when any corner is, so in each
/// quadrant four corner sets are possible besides all and none: the nearest corner alone,
/// with one or the other of its neighbours, or with both. Each set has its closed formula,
/// ComputeQuad<quadrant>_HFD<corners>. A square that crosses an axis is cut along the axes
/// by the dispatcher and its parts are measured by the same formulas.
///
/// A formula that gives less than -0.00001 says so through `notify` with its name and
/// "Pt < 0" ("ComputeQuadIII_HFDV2V3Pt < 0"), and its value is used all the same.
#pragma once

namespace astrivelle {

class INotify;

// Quadrant I: nearest corner V1, neighbours V2 (along x) and V4 (along y).
double ComputeQuadI_HFDV1(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadI_HFDV1V2(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadI_HFDV1V4(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadI_HFDV1V2V4(double x0, double x1, double y0, double y1, double r,
                              INotify* notify);
// Quadrant II: nearest corner V2, neighbours V1 (along x) and V3 (along y).
double ComputeQuadII_HFDV2(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadII_HFDV1V2(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadII_HFDV2V3(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadII_HFDV1V2V3(double x0, double x1, double y0, double y1, double r,
                               INotify* notify);
// Quadrant III: nearest corner V3, neighbours V4 (along x) and V2 (along y).
double ComputeQuadIII_HFDV3(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadIII_HFDV3V4(double x0, double x1, double y0, double y1, double r,
                              INotify* notify);
double ComputeQuadIII_HFDV2V3(double x0, double x1, double y0, double y1, double r,
                              INotify* notify);
double ComputeQuadIII_HFDV2V3V4(double x0, double x1, double y0, double y1, double r,
                                INotify* notify);
// Quadrant IV: nearest corner V4, neighbours V3 (along x) and V1 (along y).
double ComputeQuadIV_HFDV4(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadIV_HFDV3V4(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadIV_HFDV1V4(double x0, double x1, double y0, double y1, double r, INotify* notify);
double ComputeQuadIV_HFDV1V3V4(double x0, double x1, double y0, double y1, double r,
                               INotify* notify);

/// Area of [x0, x1] x [y0, y1] (x0 <= x1, y0 <= y1) inside the circle of radius r about the
/// origin: whole, nothing, or by the formula of its quadrant and corner set, squares that
/// cross an axis cut into their quadrant parts.
double PixelAreaInCircle(double x0, double x1, double y0, double y1, double r,
                         INotify* notify = nullptr);

/// The flux of a window of side 2 * half + 1 (row order, top row first) inside the circle of
/// radius r whose centre is (cx, cy) from the centre of the window's centre pixel, y up: the
/// sum of each value times the area of its pixel inside the circle.
double FluxInCircle(const float* window, int half, double cx, double cy, double r,
                    INotify* notify = nullptr);

} // namespace astrivelle
