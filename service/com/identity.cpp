#include "service/com/identity.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "service/model/text.h"

namespace service {
namespace {

// The name of the account that the process runs as; empty when the system knows none.
std::string AccountName() {
    std::vector<char> buffer(16'384);
    passwd account{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &account, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
    return found->pw_name;
}

}  // namespace

std::string MachineName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0) return "localhost";
    return name.data();
}

bool IsThisMachine(std::string_view server) {
    return server == "." || EqualFolded(server, "localhost") || EqualFolded(server, MachineName());
}

Status CheckIdentity(std::wstring_view user, std::wstring_view domain) {
    std::string name = ToUtf8Lossy(user);
    std::string realm = ToUtf8Lossy(domain);
    if (const size_t backslash = name.find('\\'); backslash != std::string::npos) {
        realm = name.substr(0, backslash);
        name.erase(0, backslash + 1);
    } else if (const size_t at = name.rfind('@'); at != std::string::npos) {
        realm = name.substr(at + 1);
        name.erase(at);
    }
    // A name that is given but empty names nobody: it is refused, not taken for none.
    const std::string account = AccountName();
    // Account names are told apart by case on this system.
    if (!account.empty() && name == account && (realm.empty() || IsThisMachine(realm))) return {};
    return {WBEM_E_ACCESS_DENIED, "the identity \"" + (realm.empty() ? "" : realm + "\\") + name + "\"" +
                                      " is refused: this process runs as " +
                                      (account.empty() ? "an unknown account" : account) +
                                      ", and the service takes no other identity from it. Name none, or run "
                                      "the process as that account"};
}

}  // namespace service
