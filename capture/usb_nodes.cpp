// SPDX-License-Identifier: MIT
#include "capture/usb_nodes.h"

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string_view>

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

/// @return the last part of what a link points to; empty when there is none.
std::string linkTarget(const std::string& path)
{
    std::array<char, 256> target = {};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    const std::string text(target.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return text.substr(text.find_last_of('/') + 1);
}

bool hasOpen(const std::string& process, const std::string& node)
{
    const std::string descriptors = "/proc/" + process + "/fd/";
    for (const std::string& name : entriesOf(descriptors)) {
        std::array<char, 256> target = {};
        const ssize_t length = readlink((descriptors + name).c_str(), target.data(), target.size());
        // A simulated bus has its nodes in a folder of its own.
        if (length > 0 && std::string_view(target.data(), static_cast<size_t>(length)).ends_with(node))
            return true;
    }
    return false;
}

}  // namespace

bool UsbNode::usable() const
{
    return ::access(path.c_str(), R_OK | W_OK) == 0;
}

bool UsbNode::isAt(const std::string& place) const
{
    const size_t colon = place.find(':');
    if (colon == std::string::npos)
        return place == port;
    return path == "/dev/bus/usb/" + threeDigits(place.substr(0, colon)) + "/" + threeDigits(place.substr(colon + 1));
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
        const std::string path = "/dev/bus/usb/" + threeDigits(firstLine(device + "busnum")) + "/" +
                                 threeDigits(firstLine(device + "devnum"));
        nodes.push_back({vendorId, productId, path, name, std::atof(firstLine(device + "speed").c_str()),
                         linkTarget(SYSFS_DEVICES + name + ":1.0/driver")});
    }
    return nodes;
}

bool openInThisProcess(const std::string& path)
{
    return hasOpen("self", path);
}

bool udevRuleInstalled(const std::string& productId)
{
    const std::string wanted = "ATTR{idProduct}==\"" + productId + "\"";
    for (const char* folder : {"/etc/udev/rules.d/", "/run/udev/rules.d/", "/usr/lib/udev/rules.d/",
                               "/usr/local/lib/udev/rules.d/", "/lib/udev/rules.d/"}) {
        for (const std::string& name : entriesOf(folder)) {
            std::ifstream file(folder + name);
            for (std::string line; std::getline(file, line);) {
                if (line.find(wanted) != std::string::npos)
                    return true;
            }
        }
    }
    return false;
}

UserAccess userAccess()
{
    UserAccess access;
    const passwd* user = getpwuid(geteuid());
    access.name = user != nullptr ? user->pw_name : std::to_string(geteuid());
    const group* plugdev = getgrnam("plugdev");
    access.plugdevExists = plugdev != nullptr;
    if (plugdev == nullptr)
        return access;
    std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    groups.resize(static_cast<size_t>(std::max(getgroups(static_cast<int>(groups.size()), groups.data()), 0)));
    groups.push_back(getegid());
    access.inPlugdev = std::find(groups.begin(), groups.end(), plugdev->gr_gid) != groups.end();
    return access;
}

long usbMemoryMebibytes()
{
    const std::string text = firstLine("/sys/module/usbcore/parameters/usbfs_memory_mb");
    return isNumber(text) && text.size() < 10 ? std::stol(text) : -1;
}

}  // namespace vorncapture
