#include "users/UserContext.h"

// Users are not enumerated yet: the migration runs its machine pass only, and the per-user
// loop has nobody to visit.
void EnumerateUsers(std::vector<UserContext> &, const std::wstring &)
{
}

void UnmountUserHives(std::vector<UserContext> &)
{
}
