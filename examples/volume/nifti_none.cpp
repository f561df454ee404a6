// Stand-in when the NIfTI I/O library is not installed.
#include "volume/nifti_io.h"

namespace demo {

bool niftiAvailable() { return false; }

bool readNifti(const std::string&, Volume*, std::string* error) {
    if (error) *error = "built without NIfTI support (install libnifti2-dev and rebuild)";
    return false;
}

bool writeNifti(const std::string&, const Volume&, std::string* error) {
    if (error) *error = "built without NIfTI support (install libnifti2-dev and rebuild)";
    return false;
}

}  // namespace demo
