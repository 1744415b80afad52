// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The accelerator choice: what data-parallel device the machine offers, whether it
/// qualifies, when a kernel takes the accelerator path, and the texts of its failures.
#pragma once
#include <cstdint>
#include <string>

namespace astrivelle {

class INotify;
struct CSetupParams;

/// What the accelerator query found (or, after DetectAccelerator, what was kept).
struct AcceleratorInfo {
    bool present = false;    ///< a device was found (after detection: it qualified)
    std::string description; ///< device name and vendor
    bool emulated = false;   ///< a processor-side device, never used as an accelerator
    std::int64_t dedicatedMemoryKb = 0;
    bool doublePrecision = false;
    bool operator==(const AcceleratorInfo&) const = default;
};

/// True when this build can query OpenCL devices at all.
bool AcceleratorCompiledIn();

/// The platform's default accelerator: the first GPU (or accelerator-type) device of any
/// OpenCL platform, else the first device of any type. A device that is neither GPU nor
/// accelerator type (a CPU device) is marked emulated; the dedicated memory is the device's global
/// memory in KB. Returns a record with `present` false when there is no platform, no device, no
/// OpenCL in this build, or any query fails.
AcceleratorInfo QueryDefaultAccelerator();

/// A device qualifies when it is present, not emulated and has more than 10240 KB.
bool AcceleratorQualifies(const AcceleratorInfo& info);

/// The start-up rule, once after the options were read. When `info` qualifies it is kept
/// and, if `params.useAccelerator` is false, the user is asked "GPU acceleration is
/// available but currently disabled in File | System Options.\n\n Would you like to enable
/// GPU acceleration?"; Yes sets it. Otherwise `info` is cleared (no description, flags and
/// memory zero) and `params.useAccelerator` forced false without a question. Returns whether
/// the accelerator qualified.
bool DetectAccelerator(AcceleratorInfo& info, CSetupParams& params, INotify& notify);

/// The question DetectAccelerator asks.
inline constexpr const char* kEnableAcceleratorQuestion =
    "GPU acceleration is available but currently disabled in File | System Options.\n\n "
    "Would you like to enable GPU acceleration?";

/// Double-precision kernels ("Additive Color Balance", Smoothing's selected-neighbourhood and
/// quantile kernels) run on the accelerator only with double precision and at least
/// 2000001 KB of dedicated memory.
inline constexpr std::int64_t kDoubleKernelMinMemoryKb = 2000001;
bool UseDoubleKernel(bool useAccelerator, bool hasDouble, std::int64_t memoryKb);
/// Single-precision kernels (restoration blur, line suppression, artifact reduction).
bool UseSingleKernel(bool useAccelerator);

/// Rows per accelerator band, short enough that no kernel trips the display watchdog.
inline constexpr int kAcceleratorBandRows = 32;
struct AcceleratorBandPlan {
    int bands = 0;     ///< full bands of 32 rows
    int remainder = 0; ///< rows of the last, shorter band (0: none)
};
AcceleratorBandPlan AcceleratorBands(int height);

/// The four failures of the accelerator runtime. Each gives a box; the pixel function then
/// returns without falling back to the processor.
enum class AcceleratorFailure { None, DeviceRemoved, OutOfMemory, InvalidDomain, Unsupported };

inline constexpr const char* kAcceleratorRemovedText =
    "DirectX call failed due to the Windows timeout detection and recovery mechanism. "
    "Reduce Blur Window Size.";
inline constexpr const char* kAcceleratorRemovedLineText =
    "DirectX call failed due to the Windows timeout detection and recovery mechanism. "
    "Reduce horizontal and vertical window size.";
inline constexpr const char* kAcceleratorMemoryText =
    "OS/DirectX call failed due to lack of system or device memory.";
inline constexpr const char* kAcceleratorDomainText =
    "Runtime failed to launch a kernel using the compute domain specified at the "
    "parallel_for_each call site.";
inline constexpr const char* kAcceleratorUnsupportedText = "Unsupported feature used.";

/// OpenCL status codes the mapping knows (the values of CL/cl.h).
enum OpenCLStatus : int {
    OclSuccess = 0,
    OclDeviceNotAvailable = -2,
    OclMemObjectAllocationFailure = -4,
    OclOutOfResources = -5,
    OclOutOfHostMemory = -6,
    OclInvalidDevice = -33,
    OclInvalidWorkGroupSize = -54,
    OclInvalidWorkItemSize = -55,
    OclInvalidGlobalWorkSize = -63,
    OclPlatformNotFound = -1001,
};

/// Maps an OpenCL status to its failure: resources or allocation -> OutOfMemory; work-group,
/// global or work-item size -> InvalidDomain; invalid or unavailable device -> DeviceRemoved;
/// success -> None; every other code -> Unsupported.
AcceleratorFailure ClassifyOpenCLStatus(int status);

/// The box text of a failure (empty for None); line suppression has its own removed text.
std::string AcceleratorFailureText(AcceleratorFailure failure, bool lineSuppression = false);

} // namespace astrivelle
