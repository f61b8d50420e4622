// The error of the client library: a memory that is missing, incomplete or of another layout or
// catalogue, or a broker that cannot be reached. what() is a sentence for the user.
#pragma once

#include <stdexcept>

class ClientError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
