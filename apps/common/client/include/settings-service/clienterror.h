// The errors of the client library. what() is a sentence for the user.
#pragma once

#include <stdexcept>

// A memory that is missing, incomplete or of another layout or catalogue, or a broker that cannot
// be reached: it may pass (the service or the broker is starting), so the library tries again.
class ClientError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// This user is not allowed to use the device's memories or broker (EACCES on one of their
// objects): trying again does not help, so the library reports it instead.
class AccessRefused : public ClientError {
public:
    using ClientError::ClientError;
};
