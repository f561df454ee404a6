// NIfTI files through the NIfTI-2 I/O library: .nii or .nii.gz, NIfTI-1 or
// NIfTI-2 headers on reading, NIfTI-1 written.
#pragma once

#include <string>

#include "volume/volume.h"

namespace demo {

// Reads the first 3D volume of a file.  8-bit and 16-bit unsigned and 32-bit
// float data keep their type; every other type, and any data with a scaling
// slope or intercept, becomes 32f with the scaling applied.
bool readNifti(const std::string& path, Volume* volume, std::string* error);

// Writes a volume with its spacing (millimetres), in its own sample type.
bool writeNifti(const std::string& path, const Volume& volume, std::string* error);

// True when the tool was built with NIfTI support.
bool niftiAvailable();

}  // namespace demo
