// SPDX-License-Identifier: MIT
#include "capture/usb_nodes.h"

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>

namespace vorncapture {
namespace {

const std::string SYSFS_DEVICES = "/sys/bus/usb/devices/";

/// @return the names in a directory; none when it cannot be read.
std::vector<std::string> entriesOf(const std::string& directory)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(directory.c_str()), closedir);
    std::vector<std::string> names;
    if (!open)
        return names;
    while (const dirent* entry = readdir(open.get()))
        names.emplace_back(static_cast<const char*>(entry->d_name));
    return names;
}

/// @return the first line of a small system file; empty when there is none.
std::string firstLine(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// @return a bus or device number the way node names have it: three digits.
std::string threeDigits(const std::string& number)
{
    return number.size() < 3 ? std::string(3 - number.size(), '0') + number : number;
}

bool isNumber(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool hasOpen(const std::string& process, const std::string& node)
{
    const std::string descriptors = "/proc/" + process + "/fd/";
    for (const std::string& name : entriesOf(descriptors)) {
        std::array<char, 256> target = {};
        const ssize_t length = readlink((descriptors + name).c_str(), target.data(), target.size());
        if (length > 0 && std::string(target.data(), static_cast<size_t>(length)) == node)
            return true;
    }
    return false;
}

}  // namespace

bool UsbNode::usable() const
{
    return ::access(path.c_str(), R_OK | W_OK) == 0;
}

std::string UsbNode::access() const
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return "";
    const passwd* user = getpwuid(status.st_uid);
    const std::string owner = user != nullptr ? user->pw_name : std::to_string(status.st_uid);
    const group* members = getgrgid(status.st_gid);
    const std::string groupName = members != nullptr ? members->gr_name : std::to_string(status.st_gid);
    std::array<char, 8> mode = {};
    (void)std::snprintf(mode.data(), mode.size(), "%04o", status.st_mode & 07777U);
    return owner + ":" + groupName + ", mode " + mode.data();
}

std::vector<std::string> UsbNode::holders() const
{
    std::vector<std::string> found;
    const std::string self = std::to_string(getpid());
    for (const std::string& process : entriesOf("/proc")) {
        if (isNumber(process) && process != self && hasOpen(process, path))
            found.push_back(process + " (" + firstLine("/proc/" + process + "/comm") + ")");
    }
    return found;
}

std::vector<UsbNode> findUsbNodes(const std::string& vendorId, const std::string& productId)
{
    std::vector<UsbNode> nodes;
    for (const std::string& name : entriesOf(SYSFS_DEVICES)) {
        const std::string device = SYSFS_DEVICES + name + "/";
        if (firstLine(device + "idProduct") != productId || firstLine(device + "idVendor") != vendorId)
            continue;
        nodes.push_back({vendorId, productId,
                         "/dev/bus/usb/" + threeDigits(firstLine(device + "busnum")) + "/" +
                             threeDigits(firstLine(device + "devnum"))});
    }
    return nodes;
}

long usbMemoryMebibytes()
{
    const std::string text = firstLine("/sys/module/usbcore/parameters/usbfs_memory_mb");
    return isNumber(text) && text.size() < 10 ? std::stol(text) : -1;
}

}  // namespace vorncapture
