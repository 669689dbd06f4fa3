#pragma once

namespace vantor {

// The portable schema of the user database (tables, columns), as statements separated by ";".
extern const char* const kPortableSchema;

}  // namespace vantor
