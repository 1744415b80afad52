// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The OpenCL device query and the rules that decide the accelerator path.
#include "engine/Accelerator.h"

#include <vector>

#include "engine/Notify.h"
#include "engine/SetupParams.h"

#if defined(ASTRIVELLE_HAVE_OPENCL) && ASTRIVELLE_HAVE_OPENCL
#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 120
#endif
#include <CL/cl.h>
#define ASTRIVELLE_OPENCL_QUERY 1
#endif

namespace astrivelle {

#ifdef ASTRIVELLE_OPENCL_QUERY
static_assert(OclDeviceNotAvailable == CL_DEVICE_NOT_AVAILABLE);
static_assert(OclMemObjectAllocationFailure == CL_MEM_OBJECT_ALLOCATION_FAILURE);
static_assert(OclOutOfResources == CL_OUT_OF_RESOURCES);
static_assert(OclOutOfHostMemory == CL_OUT_OF_HOST_MEMORY);
static_assert(OclInvalidDevice == CL_INVALID_DEVICE);
static_assert(OclInvalidWorkGroupSize == CL_INVALID_WORK_GROUP_SIZE);
static_assert(OclInvalidWorkItemSize == CL_INVALID_WORK_ITEM_SIZE);
static_assert(OclInvalidGlobalWorkSize == CL_INVALID_GLOBAL_WORK_SIZE);

namespace {

std::string DeviceString(cl_device_id device, cl_device_info what) {
    size_t size = 0;
    if (clGetDeviceInfo(device, what, 0, nullptr, &size) != CL_SUCCESS || size == 0 || size > 4096)
        return {};
    std::string s(size, '\0');
    if (clGetDeviceInfo(device, what, size, s.data(), nullptr) != CL_SUCCESS)
        return {};
    while (!s.empty() && (s.back() == '\0' || s.back() == ' '))
        s.pop_back();
    size_t first = s.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : s.substr(first);
}

std::vector<cl_device_id> AllDevices() {
    std::vector<cl_device_id> devices;
    cl_uint platformCount = 0;
    // No ICD at all gives CL_PLATFORM_NOT_FOUND_KHR (-1001): simply no accelerator.
    if (clGetPlatformIDs(0, nullptr, &platformCount) != CL_SUCCESS || platformCount == 0 ||
        platformCount > 64)
        return devices;
    std::vector<cl_platform_id> platforms(platformCount);
    if (clGetPlatformIDs(platformCount, platforms.data(), &platformCount) != CL_SUCCESS)
        return devices;
    platforms.resize(platformCount);
    for (cl_platform_id platform : platforms) {
        cl_uint n = 0;
        if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &n) != CL_SUCCESS || n == 0 ||
            n > 256)
            continue;
        std::vector<cl_device_id> ids(n);
        if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, n, ids.data(), &n) != CL_SUCCESS)
            continue;
        ids.resize(n);
        devices.insert(devices.end(), ids.begin(), ids.end());
    }
    return devices;
}

cl_device_type DeviceType(cl_device_id device) {
    cl_device_type type = 0;
    if (clGetDeviceInfo(device, CL_DEVICE_TYPE, sizeof type, &type, nullptr) != CL_SUCCESS)
        return 0;
    return type;
}

} // namespace
#endif

bool AcceleratorCompiledIn() {
#ifdef ASTRIVELLE_OPENCL_QUERY
    return true;
#else
    return false;
#endif
}

AcceleratorInfo QueryDefaultAccelerator() {
    AcceleratorInfo info;
#ifdef ASTRIVELLE_OPENCL_QUERY
    try {
        std::vector<cl_device_id> devices = AllDevices();
        if (devices.empty())
            return info;
        cl_device_id chosen = devices.front();
        cl_device_type chosenType = DeviceType(chosen);
        for (cl_device_id d : devices) {
            cl_device_type t = DeviceType(d);
            if (t & (CL_DEVICE_TYPE_GPU | CL_DEVICE_TYPE_ACCELERATOR)) {
                chosen = d;
                chosenType = t;
                break;
            }
        }
        cl_ulong globalMem = 0;
        if (clGetDeviceInfo(chosen, CL_DEVICE_GLOBAL_MEM_SIZE, sizeof globalMem, &globalMem,
                            nullptr) != CL_SUCCESS)
            return info;
        cl_device_fp_config fp64 = 0;
        if (clGetDeviceInfo(chosen, CL_DEVICE_DOUBLE_FP_CONFIG, sizeof fp64, &fp64, nullptr) !=
            CL_SUCCESS)
            fp64 = 0; // devices older than OpenCL 1.2 may not answer: no double precision
        std::string name = DeviceString(chosen, CL_DEVICE_NAME);
        std::string vendor = DeviceString(chosen, CL_DEVICE_VENDOR);
        info.present = true;
        info.description = name;
        if (!vendor.empty() && name.find(vendor) == std::string::npos)
            info.description += name.empty() ? vendor : " (" + vendor + ")";
        info.emulated = (chosenType & CL_DEVICE_TYPE_CPU) != 0 ||
                        (chosenType & (CL_DEVICE_TYPE_GPU | CL_DEVICE_TYPE_ACCELERATOR)) == 0;
        info.dedicatedMemoryKb = static_cast<std::int64_t>(globalMem / 1024);
        info.doublePrecision = fp64 != 0;
    } catch (...) {
        return AcceleratorInfo();
    }
#endif
    return info;
}

bool AcceleratorQualifies(const AcceleratorInfo& info) {
    return info.present && !info.emulated && info.dedicatedMemoryKb > 10240;
}

bool DetectAccelerator(AcceleratorInfo& info, CSetupParams& params, INotify& notify) {
    if (!AcceleratorQualifies(info)) {
        info = AcceleratorInfo();
        params.useAccelerator = false;
        return false;
    }
    if (!params.useAccelerator && notify.Ask(kEnableAcceleratorQuestion) == Answer::Yes)
        params.useAccelerator = true;
    return true;
}

bool UseDoubleKernel(bool useAccelerator, bool hasDouble, std::int64_t memoryKb) {
    return useAccelerator && hasDouble && memoryKb >= kDoubleKernelMinMemoryKb;
}

bool UseSingleKernel(bool useAccelerator) {
    return useAccelerator;
}

AcceleratorBandPlan AcceleratorBands(int height) {
    if (height <= 0)
        return {};
    return {height / kAcceleratorBandRows, height % kAcceleratorBandRows};
}

AcceleratorFailure ClassifyOpenCLStatus(int status) {
    switch (status) {
    case OclSuccess:
        return AcceleratorFailure::None;
    case OclOutOfResources:
    case OclMemObjectAllocationFailure:
    case OclOutOfHostMemory:
        return AcceleratorFailure::OutOfMemory;
    case OclInvalidWorkGroupSize:
    case OclInvalidGlobalWorkSize:
    case OclInvalidWorkItemSize:
        return AcceleratorFailure::InvalidDomain;
    case OclInvalidDevice:
    case OclDeviceNotAvailable:
        return AcceleratorFailure::DeviceRemoved;
    default:
        return AcceleratorFailure::Unsupported;
    }
}

std::string AcceleratorFailureText(AcceleratorFailure failure, bool lineSuppression) {
    switch (failure) {
    case AcceleratorFailure::None:
        return {};
    case AcceleratorFailure::DeviceRemoved:
        return lineSuppression ? kAcceleratorRemovedLineText : kAcceleratorRemovedText;
    case AcceleratorFailure::OutOfMemory:
        return kAcceleratorMemoryText;
    case AcceleratorFailure::InvalidDomain:
        return kAcceleratorDomainText;
    case AcceleratorFailure::Unsupported:
        return kAcceleratorUnsupportedText;
    }
    return kAcceleratorUnsupportedText;
}

} // namespace astrivelle
