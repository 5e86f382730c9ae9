// The second process of the tests of tokens: does what standard input asks and answers on standard output.
//
//   token_helper [USER]     with a user's number: as that user
#include <unistd.h>

#include "tests/kernel/token_peer.h"

int main(int count, char** words) {
  if (count > 1) {
    const auto user = static_cast<uid_t>(std::atoi(words[1]));
    if (setgid(user) != 0 || setuid(user) != 0) return 1;
  }
  qntest::Peer peer;
  for (qntest::Request request; read(STDIN_FILENO, &request, sizeof request) == sizeof request;) {
    const qntest::Reply reply = peer.Do(request);
    if (write(STDOUT_FILENO, &reply, sizeof reply) != sizeof reply) return 1;
  }
}
