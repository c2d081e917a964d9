// Runs a target over the files of one folder, with any compiler: the corpus as a test.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s CORPUS-FOLDER\n", argv[0]);
    return 2;
  }
  int count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(argv[1], error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string path = entry->path().string();
    printf("%s\n", path.c_str());
    fflush(stdout);  // the last one named is the one that failed
    std::ifstream file(path, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    mpbp::fuzz::TestInput(input);
    ++count;
  }
  if (error || count == 0) {
    fprintf(stderr, "no inputs in %s\n", argv[1]);
    return 1;
  }
  printf("%d inputs\n", count);
  return 0;
}
