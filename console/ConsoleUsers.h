// The console's own user store: salted password hashes (libcrypt) kept in the tree database
// "saas", main key "consoleuser", one sub key per login name with the property "hash".
#pragma once

#include <string>

namespace console {

// True for a name usable as a tree key (login names, company and CCU ids): 1..64 bytes of
// letters, digits, '_', '-', '.', '@', not starting with '.'.
bool ValidName(const std::string& name);

// A new salted hash of `password` ("$y$" yescrypt, "$6$" SHA-512 when the library lacks
// yescrypt); "" when libcrypt refuses.
std::string HashPassword(const std::string& password);
// True when `password` hashes to `hash` (compared in constant time). False for an empty or
// malformed hash.
bool VerifyPassword(const std::string& password, const std::string& hash);

// Stores the hash for `user` (creating the key). The database status, 0 for success.
int StoreUserHash(const std::string& user, const std::string& hash);
// The stored hash of `user`, "" when the user is unknown.
std::string LoadUserHash(const std::string& user);
// Removes `user` from the store; 0 also when the user was not there.
int DeleteUser(const std::string& user);

}  // namespace console
