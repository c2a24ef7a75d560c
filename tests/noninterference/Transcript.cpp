#include "tests/noninterference/Transcript.h"

#include <fstream>

namespace qlm_test {

void Transcript::add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
}

std::vector<std::string> Transcript::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

bool Transcript::save(const std::string& path) const {
    std::ofstream out(path, std::ios::trunc);
    for (const auto& line : lines()) out << line << '\n';
    out.close();
    return static_cast<bool>(out);
}

std::vector<std::string> Transcript::load(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace qlm_test
