#include "associations/AssociationRewrite.h"

// The association rewrite is not built yet; reaching it reports failure.
bool MigrateFileAssociations(const UserContext &, HKEY, HKEY, const std::wstring &, const std::wstring &)
{
   return false;
}
