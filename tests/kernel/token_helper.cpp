// The second process of the tests of tokens: does what comes from standard input, which is a socket, and
// answers there.
//
//   token_helper USER     as the user of that number, 0 for no change
#include <unistd.h>

#include <cstdlib>

#include "tests/kernel/token_peer.h"

int main(int, char** words) {
  const auto user = static_cast<uid_t>(std::atoi(words[1]));
  if (user && (setgid(user) != 0 || setuid(user) != 0)) return 1;
  qntest::Peer peer;
  for (qntest::Request request; read(STDIN_FILENO, &request, sizeof request) == sizeof request;) {
    const qntest::Reply reply = peer.Do(request);
    if (write(STDIN_FILENO, &reply, sizeof reply) != sizeof reply) return 1;
  }
}
