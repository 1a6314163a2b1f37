// The stage of every fuzzer: a simulated machine with one process, whose only thread waits for inputs. The product's
// code needs a thread of the machine, so each input wakes that thread and the machine runs until it waits again; that
// costs two switches. A fuzzer is one source that defines the two operations below.
#pragma once

#include <string>
#include <string_view>

namespace fuzz {

// Once, on the machine's thread, before the first input.
void Prepare();

// One input, on the machine's thread. It may sleep in virtual time. It leaves nothing behind that grows.
void TryInput(std::string_view input);

// What must hold for every input: ends the fuzzer, which then keeps the input, when it does not.
void Require(bool isTrue, const char* what);

// The input as a text of the product: up to its first zero byte.
std::string TextOf(std::string_view input);

} // namespace fuzz
